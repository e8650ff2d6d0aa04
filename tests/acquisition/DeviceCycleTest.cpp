// What one meter's turn asks of it: request counts, shared answers, pauses, and the order of writes and reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Protocol/acquisition/TagWalk.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/model/TagCatalogue.h"
#include "tests/acquisition/MeterInTurn.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

std::vector<std::uint32_t> AllTags(std::uint32_t type) {
  std::vector<std::uint32_t> tags;
  for (std::uint32_t id = kFirstDaId; id <= kLastDaId; ++id) {
    if (SupportsDaTag(type, id)) tags.push_back(id - kFirstDaId);
  }
  return tags;
}

TEST(DeviceCycle, AsksOncePerGroupOfTagsThatShareAnAnswer) {
  for (const TableRow& row : ReadTable("acquisition/cycles.tsv", 6)) {
    SCOPED_TRACE(row[0] + ", type " + row[1] + ": " + row[3]);
    const std::uint32_t type = Numbers(row[1])[0];
    MeterInTurn meter({}, {.logRequest = static_cast<std::uint8_t>(Numbers(row[2])[0])}, type);
    for (const std::uint32_t number : row[3] == "*" ? AllTags(type) : Numbers(row[3])) meter.Add(number);
    const std::uint32_t walk = Numbers(row[5])[0];
    EXPECT_EQ(Numbers(row[4])[0] + walk + 1, meter.Count()) << "first cycle";
    EXPECT_EQ(walk + 1, meter.Count()) << "later cycle";
  }
}

TEST(DeviceCycle, AsksOnlyForUsedTagsOutsideAHoldWithTheExchangeOn) {
  MeterInTurn meter;
  CDeviceTag* const used = meter.Add(9, false);
  EXPECT_EQ(0U, meter.Count()) << "nobody uses it";
  used->Use();
  const CDeviceTag* const shared = meter.Add(18, false);
  meter.Cycle();
  EXPECT_EQ(1U + 1, meter.Count()) << "the clock's request comes last";
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
