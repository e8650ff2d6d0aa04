// The walk over a load profile: alignment, searches, addresses and the ways in which it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/history/HistoryChannel.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Searches and record reads among the requests since the last call.
struct Walk {
  Texts searches, records;
};

Walk TakeWalk(HistoryChannel& history) {
  Walk walk;
  for (const std::string& text : history.Take()) {
    if (text.starts_with("03")) walk.searches.push_back(text);
    if (text.starts_with("06")) walk.records.push_back(text);
  }
  return walk;
}

TEST(ProfileWalk, TwoHoursFrameByFrame) {
  HistoryChannel history(1);
  const Listing listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 12:00");
  EXPECT_EQ(1U, listing.result);
  EXPECT_EQ(3U, listing.count);
  EXPECT_EQ(30U, listing.period);
  EXPECT_THAT(listing.times, ElementsAre("2026-11-22 11:30:00", "2026-11-22 11:00:00", "2026-11-22 10:30:00"));
  EXPECT_THAT(history.Take(),
              ElementsAre("04 00", "08 06", "08 02", "03 28 00 00 00 10 22 11 26 00 1E", "08 18 00", "06 03 00 F8 08",
                          "06 03 01 00 08", "03 28 00 00 F0 11 22 11 26 00 1E", "08 18 00", "06 03 01 10 08"));
  EXPECT_EQ(0x0108, history.Entry().ProfileHeaderAddress);
  EXPECT_EQ(12U, history.Entry().ProfileStore1.Size());
}

TEST(ProfileWalk, EachProfileHasItsOwnNumbersAndStore) {
  const struct {
    std::uint32_t tag;
    Texts requests;
  } rows[] = {
      {40114, {"08 06 01", "08 02", "03 28 01 00 00 10 22 11 26 00 1E", "08 18 00", "06 08 00 F8 08"}},
      {40119, {"08 06 02", "08 02", "03 28 02 00 00 10 22 11 26 00 1E", "08 18 00", "06 09 00 F8 08"}},
  };
  for (const auto& row : rows) {
    HistoryChannel history(8, ":period2=30:period3=30");
    EXPECT_THAT(history.List(row.tag, "2026-11-22 10:30", "2026-11-22 11:00").times, ElementsAre("2026-11-22 10:30:00"));
    const Texts requests = history.Take();
    EXPECT_EQ(row.requests, Texts(requests.begin() + 1, requests.end())) << row.tag;
    EXPECT_EQ(row.tag == 40114 ? 4U : 0U, history.Entry().ProfileStore2.Size());
    EXPECT_EQ(row.tag == 40119 ? 4U : 0U, history.Entry().ProfileStore3.Size());
  }
}

TEST(ProfileWalk, EveryPeriodAlignsListsAndSearchesOnceAnHour) {
  const struct {
    int period;
    const char* start;  // written back
    const char* end;
    std::size_t count;
    const char* first;
    const char* last;
    std::size_t searches;
    const char* midnight;  // the record that begins a day, in the last hour of the day before
  } rows[] = {
      {3, "10:09:30", "11:57:40", 37, "10:09", "11:57", 2, "06 03 00 A0 08"},
      {5, "10:10:30", "11:55:40", 22, "10:10", "11:55", 2, "06 03 00 60 08"},
      {10, "10:10:30", "11:50:40", 11, "10:10", "11:50", 2, "06 03 00 30 08"},
      {15, "10:15:30", "11:45:40", 7, "10:15", "11:45", 2, "06 03 00 20 08"},
      {20, "10:20:30", "11:40:40", 5, "10:20", "11:40", 2, "06 03 00 18 08"},
      {30, "10:30:30", "11:30:40", 3, "10:30", "11:30", 2, "06 03 00 10 08"},
      {60, "11:00:30", "11:00:40", 1, "11:00", "11:00", 1, "06 03 00 08 08"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.period);
    HistoryChannel history(1, ":installed=2026-11-21T23:00:00:period=" + std::to_string(row.period));
    const Listing listing = history.List(kMain, "2026-11-22 10:07:30.250", "2026-11-22 11:58:40.500");
    EXPECT_EQ(std::string("2026-11-22 ") + row.start, listing.start);
    EXPECT_EQ(std::string("2026-11-22 ") + row.end, listing.end.substr(0, 19));
    const Texts clocks = Clocks(listing);
    ASSERT_EQ(row.count, clocks.size());
    EXPECT_EQ(row.first, clocks.front());
    EXPECT_EQ(row.last, clocks.back());
    const Walk walk = TakeWalk(history);
    EXPECT_EQ(row.searches, walk.searches.size());
    EXPECT_EQ(row.count, walk.records.size());
    EXPECT_EQ("00:00", Clocks(history.List(kMain, "2026-11-22 00:00", "2026-11-22 01:00")).at(0));
    EXPECT_EQ(row.midnight, TakeWalk(history).records.at(0));
  }
}

TEST(ProfileWalk, AddressesGoRoundTheEndOfTheMemory) {
  HistoryChannel history(1, ":period=3");
  history.Answer("08 18 00", "00 00 00 FF 80");
  (void)history.List(kMain, "2026-11-22 00:57", "2026-11-22 01:03");
  EXPECT_THAT(TakeWalk(history).records, ElementsAre("06 03 00 18 08", "06 03 00 20 08"));
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
    const std::string day = "2026-11-22 ";
    const Listing listing = history.List(kMain, day + row.start, day + row.end);
    EXPECT_EQ(1U, listing.result);
    EXPECT_EQ(day + row.startBack, listing.start);
    EXPECT_EQ(day + row.endBack, listing.end);
    EXPECT_EQ(row.clocks, Clocks(listing)) << row.start;
  }
}

TEST(ProfileWalk, BothChangesOfTheClocksInBerlin) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  const struct {
    const char* day;
    Texts clocks;
    Texts hours;    // searched
    Texts records;  // addresses; the header of hour h lies at 24 h
  } rows[] = {
      {"2026-03-29", {"01:00", "01:30", "03:00", "03:30"}, {"00", "01", "03"}, {"00 10", "00 20", "00 28", "00 50"}},
      {"2026-10-25",
       {"01:00", "01:30", "02:00", "02:30", "03:00", "03:30"},
       {"00", "01", "02", "03"},
       {"00 10", "00 20", "00 40", "00 38", "00 40", "00 50"}},
  };
  for (const auto& row : rows) {
    const std::string day = row.day;
    HistoryChannel history(1, ":installed=" + day + "T00:00:00:at=" + day + "T10:00:00");
    const Listing listing = history.List(kMain, day + " 01:00", day + " 04:00");
    EXPECT_EQ(1U, listing.result);
    EXPECT_EQ(row.clocks, Clocks(listing)) << day;
    const Walk walk = TakeWalk(history);
    Texts hours;
    for (const std::string& search : walk.searches) hours.push_back(search.substr(15, 2));
    EXPECT_EQ(row.hours, hours) << day;
    Texts records;
    for (const std::string& record : walk.records) records.push_back(record.substr(6, 5));
    EXPECT_EQ(row.records, records) << day;
    EXPECT_EQ(row.clocks, Clocks(history.List(kMain, day + " 01:00", day + " 04:00"))) << day << " from the store";
    EXPECT_THAT(TakeWalk(history).records, IsEmpty());
  }
  HistoryChannel hourly(1, ":period=60");
  EXPECT_EQ("2026-03-29 03:00:30", hourly.List(kMain, "2026-03-29 01:59:30", "2026-03-29 02:00").start);
  for (const char* const start : {"02:00", "02:10", "02:30", "02:59:59"}) {
    HistoryChannel skipped(1, ":installed=2026-03-29T00:00:00:at=2026-03-29T10:00:00");
    const Listing listing = skipped.List(kMain, std::string("2026-03-29 ") + start, "2026-03-29 04:00");
    EXPECT_EQ(Texts({"03:00", "03:30"}), Clocks(listing)) << start << ": nothing before the asked start";
    EXPECT_EQ("2026-03-29 03:00", listing.start.substr(0, 16)) << start;
  }
}

TEST(ProfileWalk, AnHourThatIsMissingIsPassedOver) {
  const struct {
    const char* missing;
    const char* nextSearch;
  } rows[] = {{"02 00 00 12 34", "03 28 00 FF FF 12 22 11 26 00 1E"},
              {"05 00 00 12 34", "03 28 00 00 F0 12 22 11 26 00 1E"},
              {"F2 00 00 12 34", "03 28 00 FF FF 12 22 11 26 00 1E"}};
  for (const auto& row : rows) {
    HistoryChannel history(1,
                           ":powercut=2026-11-22T11:00:00/2026-11-22T12:00:00:powercut=2026-11-22T13:00:00/2026-11-22T19:00:00");
    history.Line().Reply("01 08 18 00", {"*", std::string("01 ") + row.missing});
    const Listing listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 13:30");
    EXPECT_EQ(1U, listing.result);
    EXPECT_EQ(Texts({"10:30", "11:00", "12:30", "13:00"}), Clocks(listing));
    EXPECT_THAT(TakeWalk(history).searches,
                ElementsAre("03 28 00 00 00 10 22 11 26 00 1E", "03 28 00 00 F0 11 22 11 26 00 1E", row.nextSearch));
  }
}

TEST(ProfileWalk, AnotherCenturyIsNotAskedFor) {
  HistoryChannel history(1);
  EXPECT_EQ(1U, history.List(kMain, "2186-11-22 10:00", "2186-11-22 12:00").result);
  EXPECT_EQ(1U, history.List(kMain, "1999-12-31 20:00", "2000-01-01 00:30").result);
  EXPECT_THAT(TakeWalk(history).searches, IsEmpty());
}

TEST(ProfileWalk, ASearchMayTakeAHundredPollsAndNoMore) {
  for (const int polls : {99, 100}) {
    HistoryChannel history(1, ":searchpolls=" + std::to_string(polls));
    const Listing listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00");
    EXPECT_EQ(polls == 99 ? 1U : 0U, listing.result) << "the hour may exist, so it is not passed over";
    EXPECT_EQ(listing.result, listing.count);
    const auto requests = history.Line().Requests();
    EXPECT_EQ(10U, requests[5].tick - requests[4].tick) << "a short rest between two polls";
    EXPECT_EQ(100U, history.Take("08 18 00").size());
  }
}

TEST(ProfileWalk, AnEmptyRecordEndsTheListingWell) {
  HistoryChannel history(1);
  history.Answer("06 03 01 10", "FF FF FF FF FF FF FF FF");  // 11:30
  const Listing listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00");
  EXPECT_EQ(1U, listing.result);
  EXPECT_EQ(Texts({"10:30", "11:00"}), Clocks(listing));
  EXPECT_EQ(3U, TakeWalk(history).records.size());
}

TEST(ProfileWalk, FailuresBeforeTheFirstRecord) {
  for (const auto& [silentTo, result] : {std::pair("08 06", 1U), {"08 02", 0U}, {"03", 0U}, {"08 18", 0U}, {"06", 1U}}) {
    HistoryChannel history(1);
    history.Silence(silentTo);
    const Listing listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 14:00");
    EXPECT_EQ(result, listing.result) << silentTo;
    EXPECT_EQ(0U, listing.count) << silentTo;
  }
  HistoryChannel zero(1);
  zero.Answer("08 06", "00 00");
  const Listing listing = zero.List(kMain, "2026-11-22 10:37", "2026-11-22 14:00");
  EXPECT_EQ(1U, listing.result);
  EXPECT_EQ("2026-11-22 10:37:00", listing.start) << "without a period nothing is aligned";
  EXPECT_EQ(0U, HistoryChannel(1).List(40112, "1601-01-01 10:37", "2026-11-22 14:00").result)
      << "a time that no calendar of ours has";
}

}  // namespace
}  // namespace ostrel::test
