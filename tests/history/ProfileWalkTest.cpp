// The walk over a load profile: alignment, searches, addresses and the ways in which it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/history/HistoryMeter.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ProfileWalk, TwoHoursFrameByFrame) {
  HistoryChannel history(1);
  history.meter.AddHour("2026-11-22 10", 0x1000);
  history.meter.AddHour("2026-11-22 11", 0x2000);
  const auto listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 12:00");
  EXPECT_EQ(1U, listing.result);
  EXPECT_EQ(3U, listing.count);
  EXPECT_EQ(30U, listing.period);
  EXPECT_THAT(listing.times, ElementsAre("2026-11-22 11:30:00", "2026-11-22 11:00:00", "2026-11-22 10:30:00"));
  EXPECT_THAT(history.TakeRequests(), ElementsAre("01 04 00", "01 08 06", "01 08 02", "01 03 28 00 00 00 10 22 11 26 00 1E",
                                                  "01 08 18 00", "01 06 03 10 08 08", "01 06 03 10 10 08",
                                                  "01 03 28 00 10 00 11 22 11 26 00 1E", "01 08 18 00", "01 06 03 20 08 08"));
  EXPECT_EQ(0x2000, history.Entry().ProfileHeaderAddress);
  EXPECT_EQ(12U, history.Entry().ProfileStore1.Size());
}

TEST(ProfileWalk, EachProfileHasItsOwnNumbersAndStore) {
  const struct {
    std::uint32_t tag;
    Texts requests;
  } rows[] = {
      {40114, {"01 08 06 01", "01 08 02", "01 03 28 01 00 00 10 22 11 26 00 1E", "01 08 18 00", "01 06 08 10 08 08"}},
      {40119, {"01 08 06 02", "01 08 02", "01 03 28 02 00 00 10 22 11 26 00 1E", "01 08 18 00", "01 06 09 10 08 08"}},
  };
  for (const auto& row : rows) {
    HistoryChannel history(8);
    history.meter.AddHour("2026-11-22 10", 0x1000);
    EXPECT_THAT(history.List(row.tag, "2026-11-22 10:30", "2026-11-22 11:00").times, ElementsAre("2026-11-22 10:30:00"));
    const Texts requests = history.TakeRequests();
    EXPECT_EQ(row.requests, Texts(requests.begin() + 1, requests.end())) << row.tag;
    EXPECT_EQ(row.tag == 40114 ? 4U : 0U, history.Entry().ProfileStore2.Size());
    EXPECT_EQ(row.tag == 40119 ? 4U : 0U, history.Entry().ProfileStore3.Size());
  }
}

TEST(ProfileWalk, EveryPeriodAlignsListsAndSearchesOnceAnHour) {
  const struct {
    std::uint8_t period;
    const char* start;  // written back
    const char* end;
    std::size_t count;
    const char* first;
    const char* last;
    std::size_t searches;
  } rows[] = {
      {3, "10:09:30", "11:57:40.500", 37, "10:09", "11:57", 2}, {5, "10:10:30", "11:55:40", 22, "10:10", "11:55", 2},
      {10, "10:10:30", "11:50:40", 11, "10:10", "11:50", 2},    {15, "10:15:30", "11:45:40", 7, "10:15", "11:45", 2},
      {20, "10:20:30", "11:40:40", 5, "10:20", "11:40", 2},     {30, "10:30:30", "11:30:40", 3, "10:30", "11:30", 2},
      {60, "11:00:30", "11:00:40", 1, "11:00", "11:00", 1},
  };
  for (const auto& row : rows) {
    HistoryChannel history(1);
    history.meter.periods[0] = row.period;
    history.meter.AddHours("2026-11-22 09", "2026-11-22 12");
    const auto listing = history.List(kMain, "2026-11-22 10:07:30.250", "2026-11-22 11:58:40.500");
    EXPECT_EQ(std::string("2026-11-22 ") + row.start, listing.start);
    EXPECT_EQ(std::string("2026-11-22 ") + std::string(row.end).substr(0, 8), listing.end);
    const Texts clocks = Clocks(listing);
    ASSERT_EQ(row.count, clocks.size()) << int{row.period};
    EXPECT_EQ(row.first, clocks.front());
    EXPECT_EQ(row.last, clocks.back());
    const Texts requests = history.TakeRequests();
    EXPECT_EQ(row.searches, Searches(requests).size()) << int{row.period};
    EXPECT_EQ(row.count, Records(requests).size());
  }
}

TEST(ProfileWalk, WhatAlignmentKeeps) {
  const struct {
    const char* start;
    const char* end;
    const char* startBack;
    const char* endBack;
    Texts clocks;
  } rows[] = {
      {"10:10:00", "11:50:00", "10:30:00", "11:30:00", {"10:30", "11:00"}},
      // Milliseconds stay when no minute was moved; the seconds of the start do not hide its own record.
      {"10:30:20.250", "11:00:00.500", "10:30:20.250", "11:00:00.500", {"10:30", "11:00"}},
      {"10:30:00", "11:30:40", "10:30:00", "11:30:40", {"10:30", "11:00", "11:30"}},
      {"10:30:00", "10:30:00", "10:30:00", "10:30:00", {}},
      {"11:30:00", "10:30:00", "11:30:00", "10:30:00", {}},
  };
  for (const auto& row : rows) {
    HistoryChannel history(1);
    history.meter.AddHours("2026-11-22 09", "2026-11-22 12");
    const std::string day = "2026-11-22 ";
    const auto listing = history.List(kMain, day + row.start, day + row.end);
    EXPECT_EQ(1U, listing.result);
    EXPECT_EQ(day + row.startBack, listing.start);
    EXPECT_EQ(day + row.endBack, listing.end);
    EXPECT_EQ(row.clocks, Clocks(listing)) << row.start;
  }
}

TEST(ProfileWalk, TheFirstRecordOfADayLiesInTheLastHourOfTheDayBefore) {
  const struct {
    std::uint8_t period;
    std::uint16_t header;
    const char* record;
  } rows[] = {
      {3, 0x1000, "01 06 03 10 A0 08"},  {5, 0x1000, "01 06 03 10 60 08"},  {10, 0x1000, "01 06 03 10 30 08"},
      {15, 0x1000, "01 06 03 10 20 08"}, {20, 0x1000, "01 06 03 10 18 08"}, {30, 0x1000, "01 06 03 10 10 08"},
      {60, 0x1000, "01 06 03 10 08 08"}, {3, 0xFF80, "01 06 03 00 20 08"},  {60, 0xFFFF, "01 06 03 00 07 08"},
  };
  for (const auto& row : rows) {
    HistoryChannel history(1);
    history.meter.periods[0] = row.period;
    history.meter.AddHour("2026-11-21 23", row.header);
    EXPECT_THAT(history.List(kMain, "2026-11-22 00:00", "2026-11-22 01:00").times, ElementsAre("2026-11-22 00:00:00"));
    const Texts requests = history.TakeRequests();
    ASSERT_EQ(1U, Records(requests).size());
    EXPECT_EQ("01 03 28 00 00 00 23 21 11 26 00", Searches(requests).front().substr(0, 32));
    EXPECT_EQ(row.record, Records(requests).front()) << int{row.period};
  }
}

TEST(ProfileWalk, BothChangesOfTheClocksInBerlin) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  const struct {
    const char* day;
    Texts clocks;
    Texts hours;    // searched, as hours of the block
    Texts records;  // slots by address, block of hour h at h * 0x100
  } rows[] = {
      {"2026-03-29", {"01:00", "01:30", "03:00", "03:30"}, {"00", "01", "03"}, {"00 10", "01 08", "01 10", "03 08"}},
      {"2026-10-25",
       {"01:00", "01:30", "02:00", "02:30", "03:00", "03:30"},
       {"00", "01", "02", "03"},
       {"00 10", "01 08", "02 10", "02 08", "02 10", "03 08"}},
  };
  for (const auto& row : rows) {
    HistoryChannel history(1);
    const std::string day = row.day;
    for (int hour = 0; hour < 5; ++hour)
      history.meter.AddHour(day + " 0" + std::to_string(hour), static_cast<std::uint16_t>(hour * 0x100));
    const auto listing = history.List(kMain, day + " 01:00", day + " 04:00");
    EXPECT_EQ(1U, listing.result);
    EXPECT_EQ(row.clocks, Clocks(listing)) << day;
    const Texts requests = history.TakeRequests();
    Texts hours;
    for (const std::string& search : Searches(requests)) hours.push_back(search.substr(18, 2));
    EXPECT_EQ(row.hours, hours) << day;
    Texts records;
    for (const std::string& record : Records(requests)) records.push_back(record.substr(9, 5));
    EXPECT_EQ(row.records, records) << day;
    EXPECT_EQ(row.clocks, Clocks(history.List(kMain, day + " 01:00", day + " 04:00"))) << day << " from the store";
    EXPECT_THAT(Records(history.TakeRequests()), IsEmpty());
  }
  HistoryChannel hourly(1);
  hourly.meter.periods[0] = 60;
  EXPECT_EQ("2026-03-29 03:00:30", hourly.List(kMain, "2026-03-29 01:59:30", "2026-03-29 02:00").start);
}

TEST(ProfileWalk, AStartInsideTheSkippedHourListsNothingBeforeIt) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const char* const start : {"02:00", "02:10", "02:30", "02:59:59"}) {
    HistoryChannel history(1);
    for (int hour = 0; hour < 5; ++hour)
      history.meter.AddHour("2026-03-29 0" + std::to_string(hour), static_cast<std::uint16_t>(hour * 0x100));
    const auto listing = history.List(kMain, std::string("2026-03-29 ") + start, "2026-03-29 04:00");
    EXPECT_EQ(Texts({"03:00", "03:30"}), Clocks(listing)) << start;
    EXPECT_EQ("2026-03-29 03:00", listing.start.substr(0, 16)) << start;
  }
}

TEST(ProfileWalk, AnHourThatIsMissingIsPassedOver) {
  const struct {
    std::uint8_t status;
    const char* nextSearch;
  } rows[] = {{0x02, "01 03 28 00 FF FF 12 22 11 26 00 1E"},
              {0x05, "01 03 28 00 10 00 12 22 11 26 00 1E"},
              {0xF2, "01 03 28 00 FF FF 12 22 11 26 00 1E"}};
  for (const auto& row : rows) {
    HistoryChannel history(1);
    history.meter.missingStatus = row.status;
    history.meter.AddHour("2026-11-22 10", 0x1000);
    history.meter.AddHour("2026-11-22 12", 0x2000);
    const auto listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 13:30");
    EXPECT_EQ(1U, listing.result);
    EXPECT_EQ(Texts({"10:30", "11:00", "12:30", "13:00"}), Clocks(listing));
    const Texts searches = Searches(history.TakeRequests());
    ASSERT_EQ(3U, searches.size());
    EXPECT_EQ("01 03 28 00 10 00 11 22 11 26 00 1E", searches[1]);
    EXPECT_EQ(row.nextSearch, searches[2]) << int{row.status};
  }
}

TEST(ProfileWalk, AnotherCenturyIsNotAskedFor) {
  HistoryChannel history(1);
  history.meter.AddHour("2026-11-22 10", 0x1000);
  EXPECT_EQ(1U, history.List(kMain, "2186-11-22 10:00", "2186-11-22 12:00").result);
  EXPECT_EQ(1U, history.List(kMain, "1999-12-31 20:00", "2000-01-01 00:30").result);
  EXPECT_THAT(Searches(history.TakeRequests()), IsEmpty());
}

TEST(ProfileWalk, ASearchThatTakesItsTime) {
  HistoryChannel history(1);
  history.meter.AddHour("2026-11-22 10", 0x1000);
  history.meter.searchPolls = 99;
  EXPECT_EQ(1U, history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00").count);
  const auto requests = history.channel.Line().Requests();
  EXPECT_EQ(100U, Only(history.TakeRequests(), "01 08 18 00").size());
  EXPECT_EQ(10U, requests[5].tick - requests[4].tick) << "a short rest between two polls";
}

TEST(ProfileWalk, ASearchWithoutEndFailsTheWalk) {
  HistoryChannel history(1);
  history.meter.AddHour("2026-11-22 10", 0x1000);
  history.meter.searchPolls = 1'000'000;
  const auto listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00");
  EXPECT_EQ(0U, listing.result) << "the hour may exist, so it is not passed over";
  EXPECT_EQ(0U, listing.count);
  EXPECT_EQ(100U, Only(history.TakeRequests(), "01 08 18 00").size());
}

TEST(ProfileWalk, AnEmptyRecordEndsTheListingWell) {
  HistoryChannel history(1);
  history.meter.AddHours("2026-11-22 10", "2026-11-22 14");
  history.meter.records[24 + 8] = Bytes(8, 0xFF);  // 11:30
  const auto listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00");
  EXPECT_EQ(1U, listing.result);
  EXPECT_EQ(Texts({"10:30", "11:00"}), Clocks(listing));
  EXPECT_EQ(3U, Records(history.TakeRequests()).size());
}

TEST(ProfileWalk, FailuresBeforeTheFirstRecord) {
  const struct {
    const char* silentTo;
    std::uint32_t result;
  } rows[] = {{"01 08 06", 1}, {"01 08 02", 0}, {"01 03", 0}, {"01 08 18", 0}, {"01 06", 1}};
  for (const auto& row : rows) {
    HistoryChannel history(1);
    history.meter.AddHours("2026-11-22 10", "2026-11-22 14");
    history.meter.silentTo = row.silentTo;
    const auto listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00");
    EXPECT_EQ(row.result, listing.result) << row.silentTo;
    EXPECT_EQ(0U, listing.count) << row.silentTo;
  }
  HistoryChannel zero(1);
  zero.meter.periods[0] = 0;
  const auto listing = zero.List(kMain, "2026-11-22 10:37", "2026-11-22 14:00");
  EXPECT_EQ(1U, listing.result);
  EXPECT_EQ("2026-11-22 10:37:00", listing.start) << "without a period nothing is aligned";
  EXPECT_EQ(0U, zero.List(40112, "1601-01-01 10:37", "2026-11-22 14:00").result) << "a time that no calendar of ours has";
}

}  // namespace
}  // namespace ostrel::test
