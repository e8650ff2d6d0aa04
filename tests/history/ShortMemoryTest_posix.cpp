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

/// Each operation gives what came of it, 0 for nothing.
class ShortChannel : public SimulatedChannel {
 public:
  ShortChannel() : SimulatedChannel(kOptions) {
    Line().keepsRecords = false;
    Line().OnRequest([this](const std::string& request) { clockAsked_ = clockAsked_ || request.starts_with("01 04"); });
    for (const std::string archive : {"01 05", "01 0A"}) Line().ReplyAlways(archive, std::string("01 ").append(kEnergies));
    StartTrace();
    for (std::uint32_t address = 1; address < 5; ++address) {
      AddMeter(address, 1, {.simulated = "searchpolls=0:ku=20:ki=100:at=2026-11-22T20:00:00", .onLine = address == 1});
    }
    Entry(0).MeterConstant = 5000;
    // As many as fit into the list before it grows.
    for (const std::uint32_t number : {9U, 183U, 99U, 210U}) SimulatedChannel::AddTag(0, number);
  }
  ~ShortChannel() {
    while (nextSpare_ < std::size(spare_)) spare_[nextSpare_++]->Destroy(1);
  }

  std::int64_t Poll() {
    clockAsked_ = false;
    if (Protocol().Start() == 0) return 0;
    while (!clockAsked_) std::this_thread::yield();
    return Protocol().Stop();
  }
  std::int64_t Write() {
    CDeviceTag& tag = *Entry(0).Tags[2];
    LeaveWrite(tag, 10);
    const std::int64_t polled = Poll();
    return polled == 0 ? 0 : 1 + LoadFlag(tag.WritePending);
  }
  std::int64_t List(std::uint32_t tag) {
    StoreFlag(Entry(0).InfoRead, 0);
    TimestampList list{};
    const std::uint32_t result = ListTimes(Protocol(), tag, 0, kStart, kEnd, list);
    return result == 0 ? 0 : 1 + list.Count;
  }
  std::int64_t Read() {
    const HistoryItem item = ItemOf(kFirstReading);
    const FILETIME at = TimeAt("2026-11-22");
    HistoryValue value{};
    return Protocol().ReadHistoryValue(1, &item, &at, &value) == 0 || value.Quality != kGood ? 0 : 1;
  }
  std::int64_t Check() {
    FILETIME time = TimeAt("2026-11-01");
    return Protocol().CheckHistoryTimestamp(1, 40036, 0, &time);
  }
  std::int64_t Interval() {
    std::uint32_t period = 0;
    return Protocol().GetHistoryInterval(kMain, 0, &period) == 0 ? period : 0;
  }
  std::int64_t AddDevice() {
    DeviceConfig config{};
    for (std::uint32_t i = 0; i < 3; ++i) config.Tags.Append(Entry(0).Tags[i]);
    config.ProfileStore1.Append({});
    const std::uint32_t before = Devices();
    if (config.Tags.Size() != 3 || config.ProfileStore1.Size() != 1) return 0;  // the host's own part
    const std::int32_t index = Protocol().AddDevice(&config);
    EXPECT_EQ(index < 0 ? before : before + 1, Devices());
    if (index < 0) return 0;
    EXPECT_EQ(3U, Entry(before).Tags.Size());
    EXPECT_EQ(1U, Entry(before).ProfileStore1.Size());
    return 1;
  }
  std::int64_t RemoveDevice() {
    const std::uint32_t before = Devices();
    Protocol().RemoveDevice(1);
    return before - Devices();
  }
  std::int64_t AddTag() {
    const std::uint32_t before = Entry(0).Tags.Size();
    Protocol().AddTag(0, spare_[nextSpare_++]);
    return Entry(0).Tags.Size() - before;
  }
  std::int64_t Configure() {
    const PortSettings settings = MakePortSettings(kOptions);
    return Protocol().SetPortSettings(&Context(), &settings);
  }
  std::int64_t Transmit() {
    constexpr std::uint8_t kRequest[] = {0x01, 0x04, 0x00, 0x22, 0xC0};
    std::uint8_t answer[11] = {};
    std::uint32_t count = sizeof answer;
    return Protocol().TransmitAndRecieve(kRequest, sizeof kRequest, answer, &count, 0);
  }
  std::int64_t Text(std::uint32_t result) { return result != 0 && text[0] != 0 ? 1 : 0; }
  std::int64_t Next() {
    MeterTypeRecord record{};
    Protocol().Reset();
    return Protocol().Next(&record) == S_OK ? 1 : 0;
  }

  /// Good values are the meter's: 20000 impulses at twice 5000 per kWh, times 20 and 100; and its type.
  void ExpectNothingWrong() {
    std::thread([this] {  // hangs where a lock was not given back
      Protocol().LockPoll();
      Protocol().LockExchange();
      Protocol().UnlockExchange();
      Protocol().UnlockPoll();
    })
        .join();
    const CDeviceTag& energy = *Entry(0).Tags[0];
    const CDeviceTag& type = *Entry(0).Tags[1];
    EXPECT_TRUE(energy.Quality != kQualityGood || energy.Value.fltVal == 4000.0F);
    EXPECT_TRUE(type.Quality != kQualityGood || platform::StringLength(type.Value.bstrVal) != 0);
  }

  char text[kNameBuffer] = {};

 private:
  static inline const LineOptions kOptions = {.retries = 2, .pollPeriodSeconds = 1};
  static constexpr const char* kStart = "2026-11-22 08:30";
  static constexpr const char* kEnd = "2026-11-22 09:30";

  std::uint32_t Devices() { return Protocol().Channel.Devices.Size(); }

  std::atomic<bool> clockAsked_{false};
  CDeviceTag* spare_[2] = {new CountedTag, new CountedTag};
  std::size_t nextSpare_ = 0;
};

struct Operation {
  const char* name;
  std::function<std::int64_t(ShortChannel&)> call;
};

const Operation kOperations[] = {
    {"AddDevice", &ShortChannel::AddDevice},
    {"RemoveDevice", &ShortChannel::RemoveDevice},
    {"AddTag", &ShortChannel::AddTag},
    {"ReadHistoryValue", &ShortChannel::Read},
    {"GetHistoryInterval", &ShortChannel::Interval},
    {"GetHistoryDepth", [](ShortChannel& c) { return c.Protocol().GetHistoryDepth(1, kMain); }},
    {"GetHistoryTimestamps of a profile", [](ShortChannel& c) { return c.List(kMain); }},
    {"GetHistoryTimestamps of an energy", [](ShortChannel& c) { return c.List(40036); }},
    {"CheckHistoryTimestamp", &ShortChannel::Check},
    {"Start, a pass, Stop", &ShortChannel::Poll},
    {"a client's write", &ShortChannel::Write},
    {"SetPortSettings", &ShortChannel::Configure},
    {"TransmitAndRecieve", &ShortChannel::Transmit},
    {"CanPollDevice", [](ShortChannel& c) { return c.Protocol().CanPollDevice(0); }},
    {"GetTagName", [](ShortChannel& c) { return c.Text(c.Protocol().GetTagName(20006, 1, 0, c.text, 0)); }},
    {"GetTagDescription", [](ShortChannel& c) { return c.Text(c.Protocol().GetTagDescription(6, 0, c.text)); }},
    {"Next", &ShortChannel::Next},
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
