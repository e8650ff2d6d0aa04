// What one meter's turn asks of it: request counts, shared answers, pauses, and the order of writes and reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Protocol/acquisition/DeviceCycle.h"
#include "Protocol/acquisition/TagWalk.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/model/TagCatalogue.h"
#include "tests/acquisition/PlainMeter.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

/// A channel with one plain meter at address 1, its device cycle called by hand as the poll thread would.
class Cycle {
 public:
  explicit Cycle(std::uint32_t type = 1, std::uint8_t logRequest = 1, const ChannelOptions& options = {},
                 CProtocol* protocol = new CProtocol)
      : channel(options, protocol), meter_(channel.AddMeter(1, type, {.logRequest = logRequest})) {
    channel.Line().OnRequest([this](auto request) { return plain.Answer(request); });
    channel.Protocol().Running = 1;
  }
  ~Cycle() { channel.Protocol().Running = 0; }

  void AddAllTags(std::uint32_t type) {
    for (std::uint32_t id = kFirstDaId; id <= kLastDaId; ++id) {
      if (SupportsDaTag(type, id)) channel.AddTag(meter_, id - kFirstDaId);
    }
  }
  CDeviceTag* Add(std::uint32_t number, bool inUse = true) { return channel.AddTag(meter_, number, inUse); }

  std::uint32_t Run() { return RunDeviceCycle(channel.Protocol(), meter_); }
  /// Requests of one cycle.
  std::size_t Count() {
    const std::size_t before = channel.Line().RequestCount();
    EXPECT_EQ(1U, Run());
    return channel.Line().RequestCount() - before;
  }
  /// The cycle after the one-time reading, without the clock's request at its end.
  std::size_t WalkCount() {
    Run();
    return Count() - 1;
  }
  DeviceEntry& Entry() { return channel.Entry(meter_); }

  TestChannel channel;
  PlainMeter plain;

 private:
  std::uint32_t meter_;
};

TEST(DeviceCycle, AsksOncePerGroupOfTags) {
  const struct {
    std::uint32_t type;
    std::size_t walkWithLog;
    std::size_t walkWithoutLog;
    std::size_t onceRead;
  } rows[] = {{0, 122, 99, 3}, {1, 122, 99, 3}, {8, 122, 99, 3}, {2, 64, 41, 1}, {3, 73, 50, 3},
              {6, 73, 50, 3},  {7, 73, 50, 3},  {11, 95, 72, 3}, {12, 60, 37, 1}};
  for (const auto& row : rows) {
    for (const std::uint8_t log : {std::uint8_t{1}, std::uint8_t{0}}) {
      SCOPED_TRACE("type " + std::to_string(row.type) + " log " + std::to_string(log));
      Cycle cycle(row.type, log);
      cycle.AddAllTags(row.type);
      const std::size_t walk = log != 0 ? row.walkWithLog : row.walkWithoutLog;
      EXPECT_EQ(row.onceRead + walk + 1, cycle.Count()) << "first cycle";
      EXPECT_EQ(walk + 1, cycle.Count()) << "later cycle";
    }
  }
}

TEST(DeviceCycle, CorrectsTheClockWithOneMoreRequest) {
  Cycle cycle(1, 1, {.clockCorrectionDays = 7});
  cycle.AddAllTags(1);
  EXPECT_EQ(127U, cycle.Count());
  EXPECT_EQ(123U, cycle.Count());
}

TEST(DeviceCycle, SharesAnswersWithinShortLists) {
  const struct {
    std::vector<std::uint32_t> tags;
    std::size_t requests;
    const char* why;
  } rows[] = {
      {{100, 184}, 1, "a command tag has no answer to share"},
      {{103, 87}, 2, "a log answer is no averaged frequency"},
      {{87, 103}, 2, "the first log record is read by itself"},
      {{188, 200}, 2, "one clock request for both"},
      {{103, 104}, 2, "the first log record's tags are read one by one"},
      {{107, 108}, 1, "later records share"},
      {{214, 215}, 2, "limits are read one by one"},
      {{214, 214}, 2, "also the same limit twice"},
      {{9, 9}, 1, "the same tag twice"},
      {{9, 18, 27, 36}, 1, "four energies of one tariff"},
      {{9, 10}, 2, "two tariffs"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    Cycle cycle;
    for (const std::uint32_t number : row.tags) cycle.Add(number);
    EXPECT_EQ(row.requests, cycle.WalkCount());
  }
}

TEST(DeviceCycle, DecodesAnUnusedTagThatSharesTheRequest) {
  Cycle cycle;
  cycle.Add(9);
  const CDeviceTag* const shared = cycle.Add(18, false);
  EXPECT_EQ(1U, cycle.WalkCount());
  EXPECT_EQ(kQualityGood, shared->Quality);
  EXPECT_EQ(1U, shared->Updated);
}

TEST(DeviceCycle, LeavesAMeterAloneThatNobodyUses) {
  Cycle cycle;
  cycle.Add(9, false);
  EXPECT_EQ(0U, cycle.Count());
}

TEST(DeviceCycle, LeavesAMeterAloneInItsFailureHold) {
  Cycle cycle;
  cycle.Add(9);
  cycle.Entry().FailHold = 1;
  cycle.Entry().FailHoldTimer.SetPeriod(true, 60000);
  EXPECT_EQ(0U, cycle.Count());
  cycle.channel.Clock().Advance(60000);
  EXPECT_NE(0U, cycle.Count());
  EXPECT_EQ(0U, cycle.Entry().FailHold);
}

TEST(DeviceCycle, AsksNothingWhileTheExchangeIsOff) {
  Cycle cycle;
  cycle.AddAllTags(1);
  cycle.Entry().ExchangeOn = 0;
  cycle.Entry().ForceClockCheck = 1;
  EXPECT_EQ(0U, cycle.Count());
  EXPECT_EQ(0U, cycle.Entry().ForceClockCheck);
}

TEST(DeviceCycle, EndsAtTheFirstReadThatFails) {
  Cycle cycle(1, 1, {.retries = 2});
  cycle.Add(9);
  cycle.Add(75);
  cycle.Run();
  cycle.plain.silent = true;
  cycle.channel.Line().ClearRecords();
  EXPECT_EQ(0U, cycle.Run());
  EXPECT_THAT(cycle.channel.Line().RequestTexts(), ElementsAre("01 05 00 01", "01 05 00 01"));
  EXPECT_THAT(cycle.channel.LogLines(), ElementsAre("COM3 ПРИБОР:1 Нет ответа от устройства"));
}

TEST(DeviceCycle, PausesBeforeTheWalkAndBeforeTheClock) {
  Cycle cycle;
  cycle.Add(9);
  cycle.Run();
  const std::int64_t before = cycle.channel.Clock().Elapsed();
  cycle.Run();
  EXPECT_EQ(5 + 200, cycle.channel.Clock().Elapsed() - before);
}

TEST(DeviceCycle, ReadsTheMetersOwnFactorsOnceWithNeutralOnesBefore) {
  Cycle cycle;
  cycle.Add(75);
  cycle.Entry().VoltageFactor = 100.0F;
  cycle.Entry().CurrentFactor = 40.0F;
  cycle.Entry().VariantBytes[0] = 0xFF;
  cycle.Entry().VariantBytes[2] = 0xFF;
  cycle.plain.silent = true;
  EXPECT_EQ(0U, cycle.Run());
  EXPECT_EQ(1.0F, float{cycle.Entry().VoltageFactor});
  EXPECT_EQ(1.0F, float{cycle.Entry().CurrentFactor});
  EXPECT_EQ(0xF0, cycle.Entry().VariantBytes[0]);
  EXPECT_EQ(0x0F, cycle.Entry().VariantBytes[2]);
  cycle.plain.silent = false;
  cycle.channel.Line().ClearRecords();
  EXPECT_EQ(1U, cycle.Run());
  EXPECT_THAT(cycle.channel.Line().RequestTexts(), ElementsAre("01 08 02", "01 08 02", "01 08 12", "01 08 11 40", "01 04 00"));
  EXPECT_EQ(5000U, std::uint32_t{cycle.Entry().MeterConstant});
}

/// Lets a host thread's one-time reading in as soon as the line is free for the first time after it is armed.
class IntrudedProtocol final : public CProtocol {
 public:
  std::uint32_t STDMETHODCALLTYPE UnlockExchange() override {
    CProtocol::UnlockExchange();
    if (armed) {
      armed = false;
      ReadDeviceInfo(*this, 0);
    }
    return 1;
  }
  bool armed = false;
};

TEST(DeviceCycle, DoesNotShareAnAnswerThatAHistoryReadHasOverwritten) {
  auto* const protocol = new IntrudedProtocol;
  Cycle cycle(1, 1, {}, protocol);
  cycle.Add(9);
  cycle.Add(18);
  cycle.Run();
  cycle.channel.Line().ClearRecords();
  ClearUpdated(*protocol, 0);
  protocol->armed = true;
  EXPECT_EQ(1U, ServeTags(*protocol, 0));
  EXPECT_THAT(cycle.channel.Line().RequestTexts(), ElementsAre("01 05 00 01", "01 08 02", "01 08 02", "01 08 12", "01 05 00 01"));
}

/// Asks for a write as a client's host does.
void Ask(CDeviceTag* tag, float value) {
  tag->WriteValue.vt = VT_R4;
  tag->WriteValue.fltVal = value;
  StoreFlag(tag->WritePending, 1);
}

TEST(DeviceCycle, CarriesOutWritesBeforeReadsAndHoldsThemBackFromBadTags) {
  Cycle cycle;
  cycle.Run();
  const struct {
    std::uint32_t number;
    std::uint16_t quality;
    bool writtenAtOnce;
  } rows[] = {
      {219, 192, true}, {219, 12, false}, {219, 64, false}, {97, 12, true}, {99, 12, true}, {99, 64, true},
      {98, 192, true},  {98, 12, false},  {100, 12, false}, {6, 12, false}, {6, 192, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE("tag " + std::to_string(row.number) + " quality " + std::to_string(row.quality));
    Cycle fresh;
    fresh.Entry().InfoRead = 1;
    CDeviceTag* const tag = fresh.Add(row.number);
    tag->Quality = row.quality;
    Ask(tag, 1.0F);
    for (int pass = 0; pass < 2; ++pass) {
      fresh.channel.Line().ClearRecords();
      EXPECT_EQ(1U, fresh.Run());
      const auto requests = fresh.channel.Line().RequestTexts();
      const auto writes =
          std::count_if(requests.begin(), requests.end(), [](const auto& text) { return text.starts_with("01 03 "); });
      EXPECT_EQ((pass == 0) == row.writtenAtOnce ? 1 : 0, writes) << "pass " << pass;
      if (writes != 0) {
        EXPECT_TRUE(requests.front().starts_with("01 03 "));
      }
    }
    EXPECT_EQ(0U, LoadFlag(tag->WritePending));
  }
}

TEST(DeviceCycle, KeepsWritesWhileTheMeterIsSilent) {
  Cycle cycle(1, 0, {.retries = 1});
  CDeviceTag* const limit = cycle.Add(219);
  cycle.Run();
  ASSERT_EQ(kQualityGood, limit->Quality);
  cycle.plain.silent = true;
  cycle.Entry().InfoRead = 0;
  Ask(limit, 5.0F);
  for (int pass = 0; pass < 3; ++pass) EXPECT_EQ(0U, cycle.Run());
  EXPECT_EQ(1U, LoadFlag(limit->WritePending));
  cycle.plain.silent = false;
  cycle.channel.Line().ClearRecords();
  EXPECT_EQ(1U, cycle.Run());
  EXPECT_EQ(0U, LoadFlag(limit->WritePending));
  const auto requests = cycle.channel.Line().RequestTexts();
  EXPECT_EQ(1, std::count(requests.begin(), requests.end(), "01 03 2F 08 00 00 00 00 32"));
}

}  // namespace
}  // namespace ostrel::test
