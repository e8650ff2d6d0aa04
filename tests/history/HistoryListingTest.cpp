// Record times of energy archives, the check for one, and what a listing asks of the meter first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/history/HistoryMeter.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kEarly = "2000-01-01";
constexpr const char* kLate = "2100-01-01";

TEST(HistoryListing, SeriesOfEachStep) {
  const struct {
    const char* zone;
    std::uint32_t type;
    std::uint32_t tag;
    const char* clock;
    const char* start;
    Texts times;
  } rows[] = {
      {"UTC", 0, 40000, "2026-11-22 20:15:30", kEarly, {"2026-11-22 00:00:00"}},
      {"UTC",
       1,
       40120,
       "2026-03-02 20:15:30",
       "2026-02-27",
       {"2026-03-02 00:00:00", "2026-03-01 00:00:00", "2026-02-28 00:00:00", "2026-02-27 00:00:00"}},
      // The days before a change of the clocks are shifted by it.
      {"Europe/Berlin",
       1,
       40000,
       "2026-03-30 08:00:00",
       "2026-03-27",
       {"2026-03-30 00:00:00", "2026-03-28 23:00:00", "2026-03-27 23:00:00"}},
      {"Europe/Berlin",
       8,
       40000,
       "2026-10-26 08:00:00",
       "2026-10-24",
       {"2026-10-26 00:00:00", "2026-10-25 01:00:00", "2026-10-24 01:00:00"}},
      {"UTC",
       0,
       40036,
       "2012-03-31 23:59:59",
       "2011-12-01",
       {"2012-03-01 00:00:00", "2012-02-01 00:00:00", "2012-01-01 00:00:00", "2011-12-01 00:00:00"}},
      {"UTC", 12, 40192, "2026-11-22 20:15:30", kEarly, {"2026-01-01 00:00:00", "2025-01-01 00:00:00"}},
      {"UTC", 8, 40072, "2026-11-22 20:15:30", kEarly, {"2026-01-01 00:00:00"}},
      // Type 8 can read cumulative energies and keeps, as its depth has it, none.
      {"UTC", 8, 40120, "2026-11-22 20:15:30", kEarly, {}},
  };
  for (const auto& row : rows) {
    const TimeZone zone(row.zone);
    if (!zone.Applies()) continue;
    HistoryChannel history(row.type);
    history.meter.clock = row.clock;
    const auto listing = history.List(row.tag, row.start, kLate);
    EXPECT_EQ(1U, listing.result) << row.tag;
    EXPECT_EQ(row.times, listing.times) << row.tag << " clock " << row.clock;
    EXPECT_EQ(row.times.size(), listing.count);
    EXPECT_EQ(0U, listing.period) << "a period is a profile's";
  }
}

TEST(HistoryListing, ListsAsManyAsTheMeterKeeps) {
  const struct {
    std::uint32_t type;
    std::uint32_t tag;
    std::uint32_t count;
    const char* oldest;
  } rows[] = {
      {1, 40000, 30, "2026-10-24 00:00:00"}, {1, 40120, 31, "2026-10-23 00:00:00"}, {6, 40036, 12, "2025-12-01 00:00:00"},
      {0, 40036, 11, "2026-01-01 00:00:00"}, {7, 40156, 13, "2025-11-01 00:00:00"}, {2, 40192, 2, "2025-01-01 00:00:00"},
  };
  const TimeZone zone("UTC");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const auto& row : rows) {
    HistoryChannel history(row.type);
    const auto listing = history.List(row.tag, kEarly, kLate);
    ASSERT_EQ(row.count, listing.times.size()) << row.type << " " << row.tag;
    EXPECT_EQ(row.oldest, listing.times.back()) << row.type << " " << row.tag;
  }
}

TEST(HistoryListing, TheStartIsIncludedAndTheEndIsNot) {
  const struct {
    const char* start;
    const char* end;
    Texts times;
  } rows[] = {
      {"2026-09-01", "2026-11-01", {"2026-10-01 00:00:00", "2026-09-01 00:00:00"}},
      {"2026-09-01 00:00:00.001", "2026-11-01 00:00:00.001", {"2026-11-01 00:00:00", "2026-10-01 00:00:00"}},
      {"2026-10-01", "2026-10-01", {"2026-10-01 00:00:00"}},  // exactly this one
      {"2026-10-02", "2026-10-02", {}},
      {"2026-11-01", "2026-09-01", {}},
  };
  HistoryChannel history(6);
  for (const auto& row : rows) {
    const auto listing = history.List(40036, row.start, row.end);
    EXPECT_EQ(row.times, listing.times) << row.start << " .. " << row.end;
    EXPECT_EQ(TimeText(TimeAt(row.start)), listing.start) << "an energy listing leaves the interval alone";
    EXPECT_EQ(1U, listing.result);
  }
}

TEST(HistoryListing, AddsToTheCountOfTheCaller) {
  HistoryChannel history(12);
  FILETIME start = TimeAt(kEarly);
  FILETIME end = TimeAt(kLate);
  TimestampList list{};
  list.Count = 7;
  list.Period = 99;
  EXPECT_EQ(1U, history.Protocol().GetHistoryTimestamps(12, 40192, 0, &start, &end, &list));
  EXPECT_EQ(9U, list.Count);
  EXPECT_EQ(99U, list.Period);
  EXPECT_EQ(2U, list.Times.Size());
}

TEST(HistoryListing, ReadsTheMetersInformationOnce) {
  HistoryChannel history(1);
  history.Entry().InfoRead = 0;
  history.Entry().MeterConstant = 0;
  EXPECT_EQ(1U, history.List(40072, kEarly, kLate).times.size());
  EXPECT_THAT(history.TakeRequests(), ElementsAre("01 04 00", "01 08 02", "01 08 02", "01 08 12"));
  EXPECT_EQ(1U, history.Entry().InfoRead);
  EXPECT_EQ(5000U, history.Entry().MeterConstant);
  EXPECT_EQ(1U, history.List(40072, kEarly, kLate).result);
  EXPECT_THAT(history.TakeRequests(), ElementsAre("01 04 00"));
}

TEST(HistoryListing, WhatFailsAndWhatOnlyListsNothing) {
  const struct {
    const char* what;
    std::uint32_t type;
    std::uint32_t tag;
    const char* silentTo;
    const char* clock;
    std::uint32_t result;
    Texts requests;
  } rows[] = {
      {"clock silent", 1, 40000, "01 04", "2026-11-22", 0, {"01 04 00"}},
      {"information silent", 1, 40000, "01 08 02", "2026-11-22", 0, {"01 04 00", "01 08 02"}},
      {"type not served", 5, 40000, "", "2026-11-22", 1, {"01 04 00", "01 08 02", "01 08 02", "01 08 12"}},
      {"no such month", 1, 40036, "", "2026-13-22", 1, {"01 04 00", "01 08 02", "01 08 02", "01 08 12"}},
      {"no such day", 1, 40000, "", "2026-02-30", 1, {"01 04 00", "01 08 02", "01 08 02", "01 08 12"}},
      {"profile of another group", 0, 40112, "", "2026-11-22", 1, {"01 04 00", "01 08 02", "01 08 02", "01 08 12"}},
      {"third profile of group 3", 6, 40116, "", "2026-11-22", 1, {"01 04 00", "01 08 02", "01 08 02", "01 08 12"}},
      {"unlisted tag", 1, 40228, "", "2026-11-22", 0, {}},
  };
  for (const auto& row : rows) {
    HistoryChannel history(row.type);
    history.Entry().InfoRead = 0;
    history.meter.silentTo = row.silentTo;
    history.meter.clock = row.clock;
    const auto listing = history.List(row.tag, kEarly, kLate);
    EXPECT_EQ(row.result, listing.result) << row.what;
    EXPECT_THAT(listing.times, IsEmpty()) << row.what;
    EXPECT_EQ(row.requests, history.TakeRequests()) << row.what;
  }
}

TEST(HistoryListing, NothingIsAskedOfAMeterThatIsSwitchedOff) {
  HistoryChannel history(1);
  history.Entry().ExchangeOn = 0;
  EXPECT_EQ(0U, history.List(40000, kEarly, kLate).result);
  EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
  EXPECT_THAT(history.TakeRequests(), IsEmpty());
  EXPECT_EQ(1U, history.Read(40000, "2026-11-22").result) << "a read does not look at the switch";
}

TEST(HistoryListing, BadArgumentsAreRejectedWithoutAWrite) {
  HistoryChannel history(1);
  IProtocol& protocol = history.Protocol();
  FILETIME start = TimeAt("2026-01-01 00:07:00");
  FILETIME end = TimeAt("2026-01-01 09:07:00");
  TimestampList list{};
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0, nullptr, &end, &list));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0, &start, nullptr, &list));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0, &start, &end, nullptr));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 1, &start, &end, &list));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0xFFFFFFFF, &start, &end, &list));
  EXPECT_EQ(0U, protocol.CheckHistoryTimestamp(1, 40000, 0, nullptr));
  EXPECT_EQ(0U, protocol.CheckHistoryTimestamp(1, 40000, 1, &start));
  std::uint32_t period = 77;
  EXPECT_EQ(-1, protocol.GetHistoryInterval(40108, 1, &period));
  EXPECT_EQ(-1, protocol.GetHistoryInterval(40108, 0, nullptr));
  EXPECT_EQ(77U, period);
  EXPECT_EQ("2026-01-01 00:07:00", TimeText(start));
  EXPECT_EQ(0U, list.Count);
  EXPECT_THAT(history.TakeRequests(), IsEmpty());
}

TEST(HistoryCheck, FindsExactlyTheRecordsOfTheSeries) {
  const struct {
    std::uint32_t type;
    std::uint32_t tag;
    const char* time;
    std::uint32_t result;
  } rows[] = {
      {1, 40000, "2026-11-22", 1},          {1, 40000, "2026-10-24", 1}, {1, 40000, "2026-10-23", 0},
      {1, 40000, "2026-11-22 00:00:01", 0}, {6, 40036, "2025-12-01", 1}, {0, 40036, "2025-12-01", 0},
      {2, 40192, "2025-01-01", 1},          {8, 40120, "2026-11-22", 0}, {5, 40000, "2026-11-22", 0},
      {1, 40108, "2026-11-22", 0},  // a profile's record is never confirmed
      {0, 40112, "2026-11-22 10:30", 0},    {1, 40228, "2026-11-22", 0},
  };
  const TimeZone zone("UTC");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const auto& row : rows) {
    HistoryChannel history(row.type);
    EXPECT_EQ(row.result, history.Check(row.tag, row.time)) << row.type << " " << row.tag << " " << row.time;
  }
}

TEST(HistoryCheck, WhatIsNotKnownIsNotDenied) {
  HistoryChannel history(1);
  history.meter.clock = "2026-02-30";
  EXPECT_EQ(1U, history.Check(40000, "2026-02-28"));
  history.meter.silentTo = "01 08 06";
  EXPECT_EQ(1U, history.Check(40108, "2026-11-22"));
  history.meter.silentTo = "01 04";
  EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
}

TEST(HistoryInterval, StepsAndPeriods) {
  HistoryChannel history(8);
  history.meter.periods = {30, 3, 60};
  const struct {
    std::uint32_t tag;
    std::int32_t interval;
    std::uint32_t period;
    Texts requests;
  } rows[] = {
      {40035, 2, 77, {}},
      {40120, 2, 77, {}},
      {40036, 3, 77, {}},
      {40191, 3, 77, {}},
      {40072, 4, 77, {}},
      {40227, 4, 77, {}},
      {40111, 0, 30, {"01 08 06"}},
      {40112, 0, 3, {"01 08 06 01"}},
      {40119, 0, 60, {"01 08 06 02"}},
  };
  for (const auto& row : rows) {
    std::uint32_t period = 77;
    EXPECT_EQ(row.interval, history.Protocol().GetHistoryInterval(row.tag, 0, &period)) << row.tag;
    EXPECT_EQ(row.period, period) << row.tag;
    EXPECT_EQ(row.requests, history.TakeRequests()) << row.tag;
  }
  history.meter.silentTo = "01 08 06";
  std::uint32_t period = 77;
  EXPECT_EQ(-1, history.Protocol().GetHistoryInterval(40108, 0, &period));
  EXPECT_EQ(0U, period);
}

}  // namespace
}  // namespace ostrel::test
