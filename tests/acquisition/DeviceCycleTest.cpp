// What one meter's turn asks of it: request counts, shared answers, pauses, and the order of writes and reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Protocol/acquisition/TagWalk.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/model/TagCatalogue.h"
#include "tests/acquisition/MeterInTurn.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

void AddAllTags(MeterInTurn& meter, std::uint32_t type) {
  for (std::uint32_t id = kFirstDaId; id <= kLastDaId; ++id) {
    if (SupportsDaTag(type, id)) meter.Add(id - kFirstDaId);
  }
}

/// The cycle after the one-time reading, without the clock's request at its end.
std::size_t WalkCount(MeterInTurn& meter) {
  meter.Cycle();
  return meter.Count() - 1;
}

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
      MeterInTurn meter({}, {.logRequest = log}, row.type);
      AddAllTags(meter, row.type);
      const std::size_t walk = log != 0 ? row.walkWithLog : row.walkWithoutLog;
      EXPECT_EQ(row.onceRead + walk + 1, meter.Count()) << "first cycle";
      EXPECT_EQ(walk + 1, meter.Count()) << "later cycle";
    }
  }
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
    MeterInTurn meter;
    for (const std::uint32_t number : row.tags) meter.Add(number);
    EXPECT_EQ(row.requests, WalkCount(meter));
  }
}

TEST(DeviceCycle, AsksOnlyForUsedTagsOutsideAHoldWithTheExchangeOn) {
  MeterInTurn meter;
  CDeviceTag* const used = meter.Add(9, false);
  EXPECT_EQ(0U, meter.Count()) << "nobody uses it";
  used->Use();
  const CDeviceTag* const shared = meter.Add(18, false);
  EXPECT_EQ(1U, WalkCount(meter));
  EXPECT_EQ(kQualityGood, shared->Quality) << "decoded along with the used one";
  EXPECT_EQ(1U, shared->Updated);
  meter.Entry().FailHold = 1;
  meter.Entry().FailHoldTimer.SetPeriod(true, 60000);
  EXPECT_EQ(0U, meter.Count());
  meter.Clock().Advance(60000);
  EXPECT_NE(0U, meter.Count());
  EXPECT_EQ(0U, meter.Entry().FailHold);
  meter.Entry().ExchangeOn = 0;
  meter.Entry().ForceClockCheck = 1;
  EXPECT_EQ(0U, meter.Count());
  EXPECT_EQ(0U, meter.Entry().ForceClockCheck);
}

TEST(DeviceCycle, PausesBeforeTheWalkAndBeforeTheClockAndEndsAtTheFirstReadThatFails) {
  MeterInTurn meter({.retries = 2});
  meter.Add(9);
  meter.Add(75);
  meter.Cycle();
  const std::int64_t before = meter.Clock().Elapsed();
  meter.Cycle();
  EXPECT_EQ(5 + 200, meter.Clock().Elapsed() - before);
  meter.Silence();
  meter.Line().ClearRecords();
  EXPECT_EQ(0U, meter.Cycle());
  EXPECT_THAT(meter.Take(), ElementsAre("01 05 00 01", "01 05 00 01"));
}

TEST(DeviceCycle, ReadsTheMetersOwnFactorsOnceWithNeutralOnesBefore) {
  MeterInTurn meter({.clockCorrectionDays = 7});
  meter.Add(75);
  meter.Entry().VoltageFactor = 100.0F;
  meter.Entry().CurrentFactor = 40.0F;
  meter.Entry().VariantBytes[0] = 0xFF;
  meter.Entry().VariantBytes[2] = 0xFF;
  meter.Silence();
  EXPECT_EQ(0U, meter.Cycle());
  EXPECT_EQ(1.0F, float{meter.Entry().VoltageFactor});
  EXPECT_EQ(1.0F, float{meter.Entry().CurrentFactor});
  EXPECT_EQ(0xF0, meter.Entry().VariantBytes[0]);
  EXPECT_EQ(0x0F, meter.Entry().VariantBytes[2]);
  meter.Silence(false);
  meter.Line().ClearRecords();
  EXPECT_EQ(1U, meter.Cycle());
  EXPECT_THAT(meter.Take(), ElementsAre("01 08 02", "01 08 02", "01 08 12", "01 08 11 40", "01 04 00",
                                        "01 03 0D 01 00 20"));  // the clock's correction is due at once, and not again
  EXPECT_EQ(5000U, std::uint32_t{meter.Entry().MeterConstant});
  meter.Cycle();
  EXPECT_THAT(meter.Take(), ElementsAre("01 08 11 40", "01 04 00"));
}

TEST(DeviceCycle, TakesNoFactorsFromAnAnswerOfAnotherLength) {
  MeterInTurn meter;
  meter.Add(75);
  meter.Line().ReplyAlways("01 08 12", "01 01 40");
  EXPECT_EQ(0U, meter.Cycle());
  EXPECT_EQ(0U, LoadFlag(meter.Entry().InfoRead));
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
  MeterInTurn meter({.protocol = protocol});
  meter.Add(9);
  meter.Add(18);
  meter.Cycle();
  meter.Line().ClearRecords();
  ClearUpdated(*protocol, 0);
  protocol->armed = true;
  EXPECT_EQ(1U, ServeTags(*protocol, 0));
  EXPECT_THAT(meter.Take(), ElementsAre("01 05 00 01", "01 08 02", "01 08 02", "01 08 12", "01 05 00 01"));
}

TEST(DeviceCycle, CarriesOutWritesBeforeReadsAndHoldsThemBackFromBadTags) {
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
    MeterInTurn meter;
    meter.Entry().InfoRead = 1;
    CDeviceTag* const tag = meter.Add(row.number);
    tag->Quality = row.quality;
    LeaveWrite(*tag, 1.0F);
    for (int pass = 0; pass < 2; ++pass) {
      EXPECT_EQ(1U, meter.Cycle());
      const auto requests = meter.Take();
      const bool written = (pass == 0) == row.writtenAtOnce;
      EXPECT_EQ(written ? 1 : 0, std::ranges::count_if(requests, [](auto& text) { return text.starts_with("01 03 "); })) << pass;
      EXPECT_EQ(written, requests.front().starts_with("01 03 ")) << pass;
    }
    EXPECT_EQ(0U, LoadFlag(tag->WritePending));
  }
}

}  // namespace
}  // namespace ostrel::test
