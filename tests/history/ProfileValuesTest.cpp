// What a listing of a load profile keeps: values and qualities, the store and what takes a record's place in it, what a
// failing line leaves, and whom the cached values are given to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/history/HistoryMeter.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ProfileValues, PowersScaleAndCarryTheirQuality) {
  const struct {
    std::uint8_t period;
    std::uint32_t constant;
    const char* coefficients;
    const char* record;
    float value;
    std::uint32_t quality;
  } rows[] = {
      {30, 5000, "00 01 00 01", "03 E8 00 00 00 00 00 00", 0.2F, kGood},
      {3, 5000, "00 01 00 01", "03 E8 00 00 00 00 00 00", 2.0F, kGood},
      {30, 5000, "00 0A 00 14", "03 E8 00 00 00 00 00 00", 40.0F, kGood},
      {30, 5000, "FF FF 00 01", "03 E8 00 00 00 00 00 00", -0.2F, kGood},
      {30, 5000, "00 01 00 01", "83 E8 00 00 00 00 00 00", 0.2F, kBad},
      {30, 5000, "00 01 00 01", "FF FF FF FF FF FF FF FE", 6.5534F, kBad},
      {30, 0, "00 01 00 01", "03 E8 00 00 00 00 00 00", 0.0F, kBad},
      {32, 0x04000000, "00 01 00 01", "03 E8 00 00 00 00 00 00", 0.0F, kBad},  // the divisor wraps to nothing
  };
  for (const auto& row : rows) {
    HistoryChannel history(1);
    history.Entry().MeterConstant = row.constant;
    history.meter.periods[0] = row.period;
    history.meter.coefficients = Hex(row.coefficients);
    history.meter.AddHour("2026-11-22 10", 0x1000);
    for (std::uint16_t slot = 0; slot < 20; ++slot)
      history.meter.records[static_cast<std::uint16_t>(0x1008 + slot * 8)] = Hex(row.record);
    EXPECT_LT(0U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00").count);
    const auto reading = history.Read(kMain, row.period == 32 ? "2026-11-22 10:32" : "2026-11-22 10:30");
    EXPECT_EQ(row.quality, reading.value.Quality) << row.record << " " << row.constant;
    EXPECT_FLOAT_EQ(row.value, reading.value.Value.fltVal) << row.record << " " << row.constant;
    EXPECT_EQ(VT_R4, reading.value.Value.vt);
  }
}

TEST(ProfileValues, FourTagsShareOneRecord) {
  HistoryChannel history(1);
  history.meter.AddHour("2026-11-22 10", 0x1000);
  history.meter.records[0x1008] = Hex("03 E8 07 D0 0B B8 8F A0");
  const float values[] = {0.2F, 0.4F, 0.6F, 0.8F};
  for (std::uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(1U, history.List(kMain + i, "2026-11-22 10:30", "2026-11-22 11:00").count);
    const auto reading = history.Read(kMain + i, "2026-11-22 10:30");
    EXPECT_FLOAT_EQ(values[i], reading.value.Value.fltVal);
    EXPECT_EQ(i == 3 ? kBad : kGood, reading.value.Quality);
  }
  EXPECT_EQ(1U, Records(history.TakeRequests()).size()) << "the other three come from the store";
}

TEST(ProfileValues, TheSecondListingReadsNoRecord) {
  HistoryChannel history(1);
  history.meter.AddHours("2026-11-22 00", "2026-11-22 14");
  history.meter.records[8] = Hex("83 E8 00 00 00 00 00 00");  // bad, and served as it is
  const auto first = history.List(kMain, "2026-11-22 00:30", "2026-11-22 14:00");
  const auto firstBad = history.Read(kMain, "2026-11-22 00:30");
  history.TakeRequests();
  history.meter.records.clear();
  const auto second = history.List(kMain, "2026-11-22 00:30", "2026-11-22 14:00");
  EXPECT_EQ(27U, second.times.size());
  EXPECT_EQ(first.times, second.times);
  EXPECT_THAT(history.TakeRequests(), ElementsAre("01 04 00", "01 08 06", "01 08 02"));
  const auto secondBad = history.Read(kMain, "2026-11-22 00:30");
  EXPECT_EQ(kBad, secondBad.value.Quality);
  EXPECT_EQ(firstBad.value.Value.fltVal, secondBad.value.Value.fltVal);
  EXPECT_EQ(27U * 4, history.Entry().ProfileStore1.Size());
}

TEST(ProfileValues, AnOverwrittenBlockTakesThePlaceOfTheOldRecords) {
  HistoryChannel history(1);
  history.meter.AddHour("2026-11-21 10", 0x1000);
  EXPECT_EQ(2U, history.List(kMain, "2026-11-21 10:30", "2026-11-21 11:30").count);
  history.meter.AddHour("2026-11-22 10", 0x1000);  // the ring came round
  EXPECT_EQ(2U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:30").count);
  EXPECT_EQ(8U, history.Entry().ProfileStore1.Size());
  history.TakeRequests();
  EXPECT_EQ(2U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:30").count);
  EXPECT_THAT(Records(history.TakeRequests()), IsEmpty());
  // Of the older ones nothing is left to serve; what the meter now has at their address is asked for again.
  EXPECT_EQ(2U, history.List(kMain, "2026-11-21 10:30", "2026-11-21 11:30").count);
  EXPECT_EQ(2U, Records(history.TakeRequests()).size());
}

TEST(ProfileValues, ALineThatFailsInMidWalkLosesNothing) {
  const struct {
    const char* silentTo;
    std::uint32_t result;
  } rows[] = {{"01 03 28 00 00 18 12", 0}, {"01 06 03 00 38", 1}};  // the search of 12:00, its first record
  for (const auto& row : rows) {
    HistoryChannel history(1);
    history.meter.AddHours("2026-11-22 10", "2026-11-22 14");
    history.meter.silentTo = row.silentTo;
    const auto cut = history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00");
    EXPECT_EQ(row.result, cut.result) << row.silentTo;
    EXPECT_THAT(cut.times,
                ElementsAre("2026-11-22 12:00:00", "2026-11-22 11:30:00", "2026-11-22 11:00:00", "2026-11-22 10:30:00"));
    EXPECT_EQ(kGood, history.Read(kMain, "2026-11-22 12:00").value.Quality) << "what was listed can be read";
    history.meter.silentTo.clear();
    history.TakeRequests();
    const auto whole = history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00");
    EXPECT_EQ(7U, whole.count);
    EXPECT_THAT(Records(history.TakeRequests()), ElementsAre("01 06 03 00 38 08", "01 06 03 00 40 08", "01 06 03 00 50 08"));
  }
}

TEST(ProfileValues, ReadsServeTheLastListedTagOfTheLastListedMeter) {
  HistoryChannel history(1);
  const std::uint32_t other = history.channel.AddMeter(2, 1);
  history.channel.Entry(other).InfoRead = 1;
  history.channel.Entry(other).MeterConstant = 5000;
  HistoryMeter second(2);
  for (HistoryMeter* meter : {&history.meter, &second}) meter->AddHour("2026-11-22 10", 0x1000);
  history.channel.Line().OnRequest(
      [&](auto request) { return request[0] == 2 ? second.Answer(request) : history.meter.Answer(request); });
  const char* const time = "2026-11-22 10:30";
  EXPECT_EQ(kUntouchedWord, history.Read(kMain, time).value.Quality) << "before any listing";
  EXPECT_EQ(1U, history.List(kMain, time, "2026-11-22 11:00").count);
  EXPECT_EQ(kGood, history.Read(kMain, time).value.Quality);
  EXPECT_EQ(kUntouchedWord, history.Read(kMain + 1, time).value.Quality) << "another tag";
  EXPECT_EQ(kUntouchedWord, history.Read(kMain, "2026-11-22 11:00").value.Quality) << "another time";
  history.device = other;
  const auto foreign = history.Read(kMain, time);
  EXPECT_EQ(1U, foreign.result);
  EXPECT_EQ(kUntouchedWord, foreign.value.Quality) << "another meter";
  EXPECT_EQ(1U, history.List(kMain, time, "2026-11-22 11:00").count);
  EXPECT_EQ(kGood, history.Read(kMain, time).value.Quality);
  history.Protocol().RemoveDevice(0);
  history.device = 0;
  EXPECT_EQ(kUntouchedWord, history.Read(kMain, time).value.Quality) << "the places of the meters moved";
}

TEST(ProfileValues, TypesThatAreServedNoValue) {
  HistoryChannel history(1);  // lists its third profile and is given no value of it
  history.meter.AddHour("2026-11-22 10", 0x1000);
  EXPECT_EQ(1U, history.List(40116, "2026-11-22 10:30", "2026-11-22 11:00").count);
  EXPECT_EQ(kUntouchedWord, history.Read(40116, "2026-11-22 10:30").value.Quality);
  history.type = 8;
  EXPECT_EQ(kGood, history.Read(40116, "2026-11-22 10:30").value.Quality);
}

TEST(ProfileValues, AMeterThatIsExchangedDuringTheWalkFailsIt) {
  for (const char* const moment : {"01 08 02", "01 03", "01 08 18", "01 06"}) {
    HistoryChannel history(1);
    history.meter.AddHours("2026-11-22 10", "2026-11-22 14");
    history.channel.Line().OnRequest([&](auto request) {
      const Bytes answer = history.meter.Answer(request);
      if (ToHex(request).starts_with(moment) && history.Entry().Address == 1) {
        history.Protocol().RemoveDevice(0);
        history.channel.AddMeter(2, 1);
      }
      return answer;
    });
    EXPECT_EQ(0U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00").result) << moment;
    EXPECT_EQ(0U, history.Entry().ProfileStore1.Size()) << moment;
    EXPECT_EQ(0U, history.Entry().ProfileHeaderAddress) << moment;
  }
}

TEST(ProfileValues, AMeterThatWasAddedAnewStartsWithItsOwnStore) {
  HistoryChannel history(1);
  history.meter.AddHours("2026-11-22 10", "2026-11-22 14");
  EXPECT_EQ(3U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 12:00").count);
  bool exchanged = false;
  history.channel.Line().OnRequest([&](auto request) {
    if (request[1] == 0x03 && !exchanged) {
      exchanged = true;
      history.Protocol().RemoveDevice(0);
      history.channel.AddMeter(1, 1);  // same place, same address
    }
    return history.meter.Answer(request);
  });
  EXPECT_EQ(0U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00").result);
  EXPECT_EQ(0U, history.Entry().ProfileStore1.Size());
}

}  // namespace
}  // namespace ostrel::test
