// What a listing of a load profile keeps: values and qualities, the store and what takes a record's place in it, what a
// failing line leaves, and whom the cached values are given to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/history/HistoryChannel.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kTenThirty = "2026-11-22 10:30";
constexpr const char* kEleven = "2026-11-22 11:00";
constexpr const char* kTwo = "2026-11-22 14:00";

TEST(ProfileValues, PowersScaleAndCarryTheirQuality) {
  for (const TableRow& row : ReadTable("history/powers.tsv", 6)) {
    HistoryChannel history(1);
    history.Entry().MeterConstant = Numbers(row[1])[0];
    history.Answer("08 06", "00 " + row[0]);
    history.Answer("08 02", row[2] + "00 00 00 00 00 00");
    history.Answer("03 28", "00");
    history.Answer("08 18", "00 00 00 10 00");
    history.Answer("06 03", row[3]);
    const Listing listing = history.List(kMain, kTenThirty, kEleven);
    ASSERT_LT(0U, listing.count);
    const HistoryValue value = history.Read(kMain, listing.times.back()).value;
    EXPECT_EQ(row[5] == "good" ? kGood : kBad, value.Quality) << row[3] << " " << row[1];
    EXPECT_FLOAT_EQ(FloatOf(row[4]), value.Value.fltVal) << row[3] << " " << row[1];
    EXPECT_EQ(VT_R4, value.Value.vt);
  }
}

TEST(ProfileValues, FourTagsShareOneRecord) {
  HistoryChannel history(1);
  history.Answer("06 03 00 F8", "03 E8 07 D0 0B B8 8F A0");
  for (std::uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(1U, history.List(kMain + i, kTenThirty, kEleven).count);
    const HistoryValue value = history.Read(kMain + i, kTenThirty).value;
    EXPECT_FLOAT_EQ(0.2F * static_cast<float>(i + 1), value.Value.fltVal);
    EXPECT_EQ(i == 3 ? kBad : kGood, value.Quality);
  }
  EXPECT_EQ(1U, history.Take("06").size()) << "the other three come from the store";
  EXPECT_EQ(0x00F0, history.Entry().ProfileHeaderAddress);
}

TEST(ProfileValues, TheSecondListingServesWhatTheFirstRead) {
  HistoryChannel history(1);
  history.Answer("06 03 00 08", "83 E8 00 00 00 00 00 00");  // bad, and served as it is
  EXPECT_EQ(27U, history.List(kMain, "2026-11-22 00:30", kTwo).count);
  const Reading first = history.Read(kMain, "2026-11-22 00:30");
  history.Answer("06 03", "00 00 00 00 00 00 00 00");
  history.Take();
  EXPECT_EQ(27U, history.List(kMain, "2026-11-22 00:30", kTwo).count);
  EXPECT_THAT(history.Take(), ElementsAre("04 00", "08 06", "08 02"));
  const Reading second = history.Read(kMain, "2026-11-22 00:30");
  EXPECT_EQ(kBad, second.value.Quality);
  EXPECT_EQ(first.value.Value.fltVal, second.value.Value.fltVal);
}

TEST(ProfileValues, AnOverwrittenBlockTakesThePlaceOfTheOldRecords) {
  HistoryChannel history(1, ":installed=2026-11-21T00:00:00");
  history.Answer("08 18", "00 00 00 10 00");  // every hour lies in one place: the ring came round
  history.Answer("06 03 10", "03 E8 00 00 00 00 00 00");
  EXPECT_EQ(2U, history.List(kMain, "2026-11-21 10:30", "2026-11-21 11:30").count);
  EXPECT_EQ(2U, history.List(kMain, kTenThirty, "2026-11-22 11:30").count);
  EXPECT_EQ(8U, history.Entry().ProfileStore1.Size());
  history.Take();
  EXPECT_EQ(2U, history.List(kMain, kTenThirty, "2026-11-22 11:30").count);
  EXPECT_THAT(history.Take("06"), IsEmpty());
  // Of the older ones nothing is left to serve; what the meter now has at their address is asked for again.
  EXPECT_EQ(2U, history.List(kMain, "2026-11-21 10:30", "2026-11-21 11:30").count);
  EXPECT_EQ(2U, history.Take("06").size());
}

TEST(ProfileValues, ALineThatFailsInMidWalkLosesNothing) {
  // The search of 12:00, and its first record.
  for (const auto& [silentTo, result] : {std::pair("03 28 00 01 08 12", 0U), {"06 03 01 28", 1U}}) {
    HistoryChannel history(1);
    history.Silence(silentTo);
    const Listing cut = history.List(kMain, kTenThirty, kTwo);
    EXPECT_EQ(result, cut.result) << silentTo;
    EXPECT_THAT(cut.times,
                ElementsAre("2026-11-22 12:00:00", "2026-11-22 11:30:00", "2026-11-22 11:00:00", "2026-11-22 10:30:00"));
    EXPECT_EQ(kGood, history.Read(kMain, "2026-11-22 12:00").value.Quality) << "what was listed can be read";
    history.Line().ReplyAlways("", "*");
    history.Take();
    EXPECT_EQ(7U, history.List(kMain, kTenThirty, kTwo).count);
    EXPECT_THAT(history.Take("06"), ElementsAre("06 03 01 28 08", "06 03 01 30 08", "06 03 01 40 08"));
  }
}

TEST(ProfileValues, ReadsServeTheLastListedTagOfTheLastListedMeter) {
  HistoryChannel history(1);
  const std::uint32_t other = history.AddMeter(2, 1, {.simulated = "at=2026-11-22T20:00:00"});
  const auto quality = [&](std::uint32_t tag, const char* time) { return history.Read(tag, time).value.Quality; };
  EXPECT_EQ(kUntouchedWord, quality(kMain, kTenThirty)) << "before any listing";
  EXPECT_EQ(1U, history.List(kMain, kTenThirty, kEleven).count);
  EXPECT_EQ(kGood, quality(kMain, kTenThirty));
  EXPECT_EQ(kUntouchedWord, quality(kMain + 1, kTenThirty)) << "another tag";
  EXPECT_EQ(kUntouchedWord, quality(kMain, kEleven)) << "another time";
  history.device = other;
  EXPECT_EQ(1U, history.Read(kMain, kTenThirty).result);
  EXPECT_EQ(kUntouchedWord, quality(kMain, kTenThirty)) << "another meter";
  EXPECT_EQ(1U, history.List(kMain, kTenThirty, kEleven).count);
  EXPECT_EQ(kGood, quality(kMain, kTenThirty));
  history.Protocol().RemoveDevice(0);
  history.device = 0;
  EXPECT_EQ(kUntouchedWord, quality(kMain, kTenThirty)) << "the places of the meters moved";
}

TEST(ProfileValues, TypesThatAreServedNoValue) {
  HistoryChannel history(8, ":period3=30");
  history.type = 1;  // lists its third profile and is given no value of it
  EXPECT_EQ(1U, history.List(40116, kTenThirty, kEleven).count);
  EXPECT_EQ(kUntouchedWord, history.Read(40116, kTenThirty).value.Quality);
  history.type = 8;
  EXPECT_EQ(kGood, history.Read(40116, kTenThirty).value.Quality);
}

// Another meter in its place, or the same one again, which is told by the empty store.
TEST(ProfileValues, AMeterThatIsExchangedDuringTheWalkFailsItAndStartsWithItsOwnStore) {
  for (const std::string moment : {"2 01 08 02", "2 01 03", "2 01 08 18", "2 01 06", "1 01 03", "1 01 08 18", "1 01 06"}) {
    const std::uint32_t address = Numbers(moment)[0];
    HistoryChannel history(1);
    EXPECT_EQ(3U, history.List(kMain, kTenThirty, "2026-11-22 12:00").count);
    bool exchanged = false;
    history.Line().OnRequest([&](const std::string& request) {
      if (exchanged || !request.starts_with(moment.substr(2))) return;
      exchanged = true;
      history.Protocol().RemoveDevice(0);
      history.AddMeter(address, 1);
    });
    EXPECT_EQ(0U, history.List(kMain, kTenThirty, kTwo).result) << moment;
    EXPECT_EQ(0U, history.Entry().ProfileStore1.Size()) << moment;
    EXPECT_EQ(0U, history.Entry().ProfileHeaderAddress * (address - 1)) << moment;
  }
}

}  // namespace
}  // namespace ostrel::test
