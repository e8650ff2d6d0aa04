// Every operation of the three interfaces while memory runs short: its first allocation fails, then its second, and so on until
// none is left to fail. Nothing leaves the operation but its result, what it holds it gives back, no value is wrong, no tag is
// lost, and the next call does what it does on any other day.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "Protocol/model/TagCatalogue.h"
#include "tests/history/HistoryChannel.h"
#include "tests/support/FailingMemory.h"

namespace ostrel::test {
namespace {

int livingTags = 0;

class CountedTag final : public CDeviceTag {
 public:
  CountedTag() { ++livingTags; }
  void Destroy(std::uint32_t flags) override {
    --livingTags;
    if ((flags & 1) != 0) delete this;
  }
};

class ShortChannel {
 public:
  ShortChannel() {
    channel.Line().keepsRecords = false;
    channel.Line().OnRequest([this](const std::string& request) { clockAsked_ = clockAsked_ || request.starts_with("01 04"); });
    for (const char* archive : {"01 05", "01 0A"}) {
      channel.Line().ReplyAlways(archive, "01 00 00 4E 20 00 00 9C 40 00 00 EA 60 00 01 38 80");
    }
    channel.StartTrace();
    for (std::uint32_t address = 1; address < 5; ++address) {
      channel.AddMeter(address, 1, {.simulated = "searchpolls=0:ku=20:ki=100:at=2026-11-22T20:00:00", .onLine = address == 1});
    }
    channel.Entry(0).MeterConstant = 5000;
    // As many as fit into the list before it grows.
    for (const std::uint32_t number : {9U, 183U, 99U, 210U}) channel.AddTag(0, number);
  }

  ~ShortChannel() {
    while (nextSpare_ < std::size(spare_)) spare_[nextSpare_++]->Destroy(1);
  }

  CProtocol& Protocol() { return channel.Protocol(); }

  std::int64_t Poll() {
    clockAsked_ = false;
    if (Protocol().Start() == 0) return 0;
    while (!clockAsked_) std::this_thread::yield();
    return Protocol().Stop();
  }
  std::int64_t Write() {
    CDeviceTag& tag = *channel.Entry(0).Tags[2];
    tag.WriteValue.bVal = 10;
    StoreFlag(tag.WritePending, 1);
    const std::int64_t polled = Poll();
    return polled == 0 ? 0 : 1 + LoadFlag(tag.WritePending);
  }
  std::int64_t List(std::uint32_t tag) {
    StoreFlag(channel.Entry(0).InfoRead, 0);
    FILETIME start = start_;
    FILETIME end = end_;
    TimestampList list{};
    const std::uint32_t result = Protocol().GetHistoryTimestamps(1, tag, 0, &start, &end, &list);
    return result == 0 ? 0 : 1 + list.Count;
  }
  std::int64_t Read(std::uint32_t tag, std::string_view time) {
    const HistoryItem item{.hostWord0_ = 0, .DeviceIndex = 0, .hostWord8_ = 0, .MeterType = 1, .TagId = tag, .Tariff = 0};
    const FILETIME at = TimeAt(time);
    HistoryValue value{};
    return Protocol().ReadHistoryValue(1, &item, &at, &value) == 0 || value.Quality != kGood ? 0 : 1;
  }
  std::int64_t AddDevice() {
    DeviceConfig config{};
    for (int i = 0; i < 3; ++i) config.Tags.Append(channel.Entry(0).Tags[static_cast<std::uint32_t>(i)]);
    config.ProfileStore1.Append({});
    const std::uint32_t before = Protocol().Channel.Devices.Size();
    if (config.Tags.Size() != 3 || config.ProfileStore1.Size() != 1) return 0;  // the host's own part
    const std::int32_t index = Protocol().AddDevice(&config);
    EXPECT_EQ(index < 0 ? before : before + 1, Protocol().Channel.Devices.Size());
    if (index < 0) return 0;
    EXPECT_EQ(3U, channel.Entry(before).Tags.Size());
    EXPECT_EQ(1U, channel.Entry(before).ProfileStore1.Size());
    return 1;
  }
  std::int64_t RemoveDevice() {
    const std::uint32_t before = Protocol().Channel.Devices.Size();
    Protocol().RemoveDevice(1);
    return before - Protocol().Channel.Devices.Size();
  }
  std::int64_t AddTag() {
    const std::uint32_t before = channel.Entry(0).Tags.Size();
    Protocol().AddTag(0, spare_[nextSpare_++]);
    return channel.Entry(0).Tags.Size() - before;
  }
  std::int64_t Text(std::uint32_t result) { return result != 0 && text[0] != 0 ? 1 : 0; }

  /// Good values are the meter's: 20000 impulses at twice 5000 per kWh, times 20 and 100; and its type.
  void ExpectNothingWrong() {
    std::thread([this] {  // hangs where a lock was not given back
      Protocol().LockPoll();
      Protocol().LockExchange();
      Protocol().UnlockExchange();
      Protocol().UnlockPoll();
    })
        .join();
    const CDeviceTag& energy = *channel.Entry(0).Tags[0];
    const CDeviceTag& type = *channel.Entry(0).Tags[1];
    if (energy.Quality == kQualityGood) {
      EXPECT_EQ(4000.0F, energy.Value.fltVal);
    }
    if (type.Quality == kQualityGood) {
      EXPECT_NE(0U, platform::StringLength(type.Value.bstrVal));
    }
  }

  SimulatedChannel channel{{.retries = 2, .pollPeriodSeconds = 1}};
  char text[kNameBuffer] = {};

 private:
  const FILETIME start_ = TimeAt("2026-11-22 08:30");
  const FILETIME end_ = TimeAt("2026-11-22 09:30");
  std::atomic<bool> clockAsked_{false};
  CDeviceTag* spare_[2] = {new CountedTag, new CountedTag};
  std::size_t nextSpare_ = 0;
};

struct Operation {
  const char* name;
  std::function<std::int64_t(ShortChannel&)> call;
};

const Operation kOperations[] = {
    {"AddDevice", [](ShortChannel& c) { return c.AddDevice(); }},
    {"RemoveDevice", [](ShortChannel& c) { return c.RemoveDevice(); }},
    {"AddTag", [](ShortChannel& c) { return c.AddTag(); }},
    {"ReadHistoryValue", [](ShortChannel& c) { return c.Read(40120, "2026-11-22"); }},
    {"GetHistoryInterval",
     [](ShortChannel& c) {
       std::uint32_t period = 0;
       return c.Protocol().GetHistoryInterval(kMain, 0, &period) == 0 ? std::int64_t{period} : 0;
     }},
    {"GetHistoryDepth", [](ShortChannel& c) { return std::int64_t{c.Protocol().GetHistoryDepth(1, kMain)}; }},
    {"GetHistoryTimestamps of a profile", [](ShortChannel& c) { return c.List(kMain); }},
    {"GetHistoryTimestamps of an energy", [](ShortChannel& c) { return c.List(40036); }},
    {"CheckHistoryTimestamp",
     [](ShortChannel& c) {
       FILETIME time = TimeAt("2026-11-01");
       return std::int64_t{c.Protocol().CheckHistoryTimestamp(1, 40036, 0, &time)};
     }},
    {"Start, a pass, Stop", [](ShortChannel& c) { return c.Poll(); }},
    {"a client's write", [](ShortChannel& c) { return c.Write(); }},
    {"SetPortSettings",
     [](ShortChannel& c) {
       const PortSettings settings = MakePortSettings({.retries = 2, .pollPeriodSeconds = 1});
       return std::int64_t{c.Protocol().SetPortSettings(&c.channel.Context(), &settings)};
     }},
    {"TransmitAndRecieve",
     [](ShortChannel& c) {
       constexpr std::uint8_t kRequest[] = {0x01, 0x04, 0x00, 0x22, 0xC0};
       std::uint8_t answer[11] = {};
       std::uint32_t count = sizeof answer;
       return std::int64_t{c.Protocol().TransmitAndRecieve(kRequest, sizeof kRequest, answer, &count, 0)};
     }},
    {"CanPollDevice", [](ShortChannel& c) { return std::int64_t{c.Protocol().CanPollDevice(0)}; }},
    {"GetTagName", [](ShortChannel& c) { return c.Text(c.Protocol().GetTagName(20006, 1, 0, c.text, 0)); }},
    {"GetTagDescription", [](ShortChannel& c) { return c.Text(c.Protocol().GetTagDescription(6, 0, c.text)); }},
    {"Next",
     [](ShortChannel& c) {
       MeterTypeRecord record{};
       c.Protocol().Reset();
       return std::int64_t{c.Protocol().Next(&record) == S_OK};
     }},
};

/// What the operation gives with this allocation failing (0: none), and again after it. True while there was one to fail.
bool RunOnce(const Operation& operation, std::int64_t nth, std::int64_t expected) {
  SCOPED_TRACE(std::string(operation.name) + ", allocation " + std::to_string(nth));
  const std::int64_t before = FailingMemory::Living();
  std::int64_t allocations = 0;
  {
    ShortChannel channel;
    std::int64_t result = 0;
    {
      const FailingMemory memory(nth);
      try {
        result = operation.call(channel);
      } catch (...) {
        ADD_FAILURE() << "left the operation";
      }
      allocations = FailingMemory::Count();
    }
    EXPECT_TRUE(result == expected || (nth <= allocations && result <= expected)) << result;
    channel.ExpectNothingWrong();
    EXPECT_EQ(expected, operation.call(channel)) << "the next call";
    channel.ExpectNothingWrong();
  }
  EXPECT_EQ(0, livingTags) << "tags lost";
  EXPECT_EQ(before, FailingMemory::Living()) << "memory lost";
  return nth <= allocations;
}

TEST(ShortMemory, NoOperationLosesOrThrowsAnything) {
  for (const Operation& operation : kOperations) {
    const std::int64_t expected = operation.call(*std::make_unique<ShortChannel>());
    EXPECT_NE(0, expected) << operation.name;
    std::int64_t nth = 1;
    while (RunOnce(operation, nth, expected)) ++nth;
  }
}

TEST(ShortMemory, AnObjectEndsWithoutAskingForAny) {
  CProtocol* const protocol = new CProtocol;
  protocol->AddRef();
  const DeviceConfig config{};
  for (int meter = 0; meter < 3; ++meter) protocol->AddDevice(&config);
  for (std::uint32_t meter = 0; meter < 3; ++meter) protocol->AddTag(meter, new CountedTag);
  protocol->RemoveDevice(1);
  const FailingMemory memory(0);
  EXPECT_EQ(0U, protocol->Release());
  EXPECT_EQ(0, FailingMemory::Count());
  EXPECT_EQ(0, livingTags);
}

}  // namespace
}  // namespace ostrel::test
