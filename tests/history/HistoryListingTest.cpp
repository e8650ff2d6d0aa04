// Record times of energy archives, the check for one, and what a listing asks of the meter first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/history/HistoryChannel.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kEarly = "2000-01-01";
constexpr const char* kLate = "2100-01-01";
constexpr const char* kNow = "2026-11-22 20:15:30";

TEST(HistoryListing, ListsTheStepsThatTheMeterKeeps) {
  const struct {
    const char* zone;
    std::uint32_t type;
    std::uint32_t tag;
    const char* clock;
    const char* start;
    std::size_t count;
    Texts times;  // the first of them, and "" before the last
  } rows[] = {
      {"UTC", 0, 40000, kNow, kEarly, 1, {"2026-11-22"}},
      {"UTC", 1, 40120, "2026-03-02 20:15:30", "2026-02-27", 4, {"2026-03-02", "2026-03-01", "2026-02-28", "2026-02-27"}},
      // The days before a change of the clocks are shifted by it.
      {"Europe/Berlin", 1, 40000, "2026-03-30 08:00:00", "2026-03-27", 3, {"2026-03-30", "2026-03-28 23", "2026-03-27 23"}},
      {"Europe/Berlin", 8, 40000, "2026-10-26 08:00:00", "2026-10-24", 3, {"2026-10-26", "2026-10-25 01", "2026-10-24 01"}},
      {"UTC", 0, 40036, "2012-03-31 23:59:59", "2011-12-01", 4, {"2012-03-01", "2012-02-01", "2012-01-01", "2011-12-01"}},
      {"UTC", 12, 40192, kNow, kEarly, 2, {"2026-01-01", "2025-01-01"}},
      {"UTC", 8, 40072, kNow, kEarly, 1, {"2026-01-01"}},
      {"UTC", 8, 40120, kNow, kEarly, 0, {}},  // it can read cumulative energies and keeps, as its depth has it, none
      {"UTC", 1, 40000, kNow, kEarly, 30, {"", "2026-10-24"}},
      {"UTC", 1, 40120, kNow, kEarly, 31, {"", "2026-10-23"}},
      {"UTC", 6, 40036, kNow, kEarly, 12, {"", "2025-12-01"}},
      {"UTC", 0, 40036, kNow, kEarly, 11, {"", "2026-01-01"}},
      {"UTC", 7, 40156, kNow, kEarly, 13, {"", "2025-11-01"}},
      {"UTC", 2, 40192, kNow, kEarly, 2, {"", "2025-01-01"}},
  };
  for (const auto& row : rows) {
    const TimeZone zone(row.zone);
    if (!zone.Applies()) continue;
    HistoryChannel history(row.type);
    history.ShowClock(row.clock);
    const Listing listing = history.List(row.tag, row.start, kLate);
    EXPECT_EQ(1U, listing.result) << row.tag;
    ASSERT_EQ(row.count, listing.times.size()) << row.type << " " << row.tag;
    EXPECT_EQ(row.count, listing.count);
    EXPECT_EQ(0U, listing.period) << "a period is a profile's";
    for (std::size_t i = 0; i < row.times.size(); ++i) {
      const bool last = row.times[0].empty();
      EXPECT_TRUE((last ? listing.times.back() : listing.times[i]).starts_with(row.times[last ? 1 : i])) << row.tag << " " << i;
    }
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
    const Listing listing = history.List(40036, row.start, row.end);
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

TEST(HistoryListing, WhatFailsAndWhatOnlyListsNothing) {
  const Texts kInformation = {"04 00", "08 02", "08 02", "08 12"};
  const struct {
    const char* what;
    std::uint32_t type;
    std::uint32_t tag;
    const char* silentTo;
    const char* clock;
    std::uint32_t result;
    Texts requests;
  } rows[] = {
      {"clock silent", 1, 40000, "04", "", 0, {"04 00"}},
      {"information silent", 1, 40000, "08 02", "", 0, {"04 00", "08 02"}},
      {"type not served", 5, 40000, "", "", 1, kInformation},
      {"no such month", 1, 40036, "", "2026-13-22 00:00:00", 1, kInformation},
      {"no such day", 1, 40000, "", "2026-02-30 00:00:00", 1, kInformation},
      {"profile of another group", 0, 40112, "", "", 1, kInformation},
      {"third profile of group 3", 6, 40116, "", "", 1, kInformation},
      {"unlisted tag", 1, 40228, "", "", 0, {}},
  };
  for (const auto& row : rows) {
    HistoryChannel history(row.type);
    history.Entry().InfoRead = 0;
    if (*row.clock != 0) history.ShowClock(row.clock);
    if (*row.silentTo != 0) history.Silence(row.silentTo);
    const Listing listing = history.List(row.tag, kEarly, kLate);
    EXPECT_EQ(row.result, listing.result) << row.what;
    EXPECT_THAT(listing.times, IsEmpty()) << row.what;
    EXPECT_EQ(row.requests, history.Take()) << row.what;
    EXPECT_EQ(row.requests == kInformation ? 1U : 0U, history.Entry().InfoRead) << row.what;
  }
}

TEST(HistoryListing, ReadsTheMetersInformationOnceAndNothingOfAMeterThatIsSwitchedOff) {
  HistoryChannel history(1);
  history.Entry().InfoRead = 0;
  history.Entry().MeterConstant = 0;
  EXPECT_EQ(1U, history.List(40072, kEarly, kLate).times.size());
  EXPECT_EQ(5000U, history.Entry().MeterConstant);
  history.Take();
  EXPECT_EQ(1U, history.List(40072, kEarly, kLate).result);
  EXPECT_THAT(history.Take(), ElementsAre("04 00"));
  history.Entry().ExchangeOn = 0;
  EXPECT_EQ(0U, history.List(40000, kEarly, kLate).result);
  EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
  EXPECT_THAT(history.Take(), IsEmpty());
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
  EXPECT_EQ(-1, protocol.GetHistoryInterval(40108, 0, nullptr));
  EXPECT_EQ("2026-01-01 00:07:00", TimeText(start));
  EXPECT_EQ(0U, list.Count);
  EXPECT_THAT(history.Take(), IsEmpty());
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
  HistoryChannel history(1);
  history.ShowClock("2026-02-30 00:00:00");
  EXPECT_EQ(1U, history.Check(40000, "2026-02-28")) << "what is not known is not denied";
  history.Silence("08 06");
  EXPECT_EQ(1U, history.Check(40108, "2026-11-22"));
  history.Silence("04");
  EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
}

TEST(HistoryInterval, StepsAndPeriods) {
  HistoryChannel history(8, ":period=30:period2=3:period3=60");
  const struct {
    std::uint32_t tag, device;
    std::int32_t interval;
    std::uint32_t period;
    Texts requests;
  } rows[] = {{40035, 0, 2, 77, {}},        {40120, 0, 2, 77, {}},          {40036, 0, 3, 77, {}},
              {40191, 0, 3, 77, {}},        {40072, 0, 4, 77, {}},          {40227, 0, 4, 77, {}},
              {40111, 0, 0, 30, {"08 06"}}, {40112, 0, 0, 3, {"08 06 01"}}, {40119, 0, 0, 60, {"08 06 02"}},
              {40228, 0, -1, 77, {}},       {40108, 1, -1, 77, {}}};
  for (const auto& row : rows) {
    std::uint32_t period = 77;
    EXPECT_EQ(row.interval, history.Protocol().GetHistoryInterval(row.tag, row.device, &period)) << row.tag;
    EXPECT_EQ(row.period, period) << row.tag;
    EXPECT_EQ(row.requests, history.Take()) << row.tag;
  }
  history.Silence("08 06");
  std::uint32_t period = 77;
  EXPECT_EQ(-1, history.Protocol().GetHistoryInterval(40108, 0, &period));
  EXPECT_EQ(0U, period);
}

}  // namespace
}  // namespace ostrel::test
