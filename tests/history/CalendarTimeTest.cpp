#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "Protocol/model/Bcd.h"
#include "Protocol/model/CalendarTime.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

TEST(CalendarTime, ChecksEachFieldBeforeTheWhole) {
  const TimeZone zone("UTC");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const TableRow& row : ReadTable("history/calendar.tsv", 2)) {
    const auto numbers = Numbers(row[0]);
    const std::vector<int> f(numbers.begin(), numbers.end());
    HRESULT failure = S_OK;
    const auto time = CalendarTime::Make(f[0], f[1], f[2], f[3], f[4], f[5], &failure);
    EXPECT_EQ(row[1] == "field" ? E_FAIL : row[1] == "whole" ? E_INVALIDARG : S_OK, failure) << row[0];
    EXPECT_EQ(row[1], time ? std::to_string(time->Seconds()) : failure == E_FAIL ? "field" : "whole") << row[0];
    EXPECT_EQ(time, CalendarTime::Make(f[0], f[1], f[2], f[3], f[4], f[5])) << row[0];
  }
}

std::vector<int> Shown(const CalendarTime& time) {
  return {time.GetYear(),   time.GetMonth(),  time.GetDay(),      time.GetHour(),
          time.GetMinute(), time.GetSecond(), time.GetDayOfWeek()};
}

TEST(CalendarTime, ReadsBackInTheComputersZone) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  const CalendarTime time(1785537045);  // 2026-07-31 22:30:45 UTC
  EXPECT_THAT(Shown(time), testing::ElementsAre(2026, 8, 1, 0, 30, 45, 7));
  SYSTEMTIME fields{};
  fields.wMilliseconds = 7;
  ASSERT_TRUE(time.ToFields(fields));
  EXPECT_EQ(6, fields.wDayOfWeek);
  EXPECT_EQ(0, fields.wMilliseconds);
  EXPECT_EQ(time, CalendarTime::FromFields(fields));
}

TEST(CalendarTime, SaysWhatCannotBeReadBack) {
  using Limits = std::numeric_limits<std::int64_t>;
  for (const std::int64_t seconds : {std::int64_t{-1}, Limits::min(), Limits::max()}) {
    SYSTEMTIME fields{};
    fields.wYear = fields.wMilliseconds = 7;
    EXPECT_FALSE(CalendarTime(seconds).ToFields(fields));
    EXPECT_EQ(14, fields.wYear + fields.wMilliseconds);
    EXPECT_THAT(Shown(CalendarTime(seconds)), testing::ElementsAre(0, 0, 0, -1, -1, -1, 0));
  }
}

TEST(CalendarTime, SpansAndInstantsReckonInSeconds) {
  EXPECT_EQ(((2 * 24 + 3) * 60 + 4) * 60 + 5, TimeSpan(2, 3, 4, 5).Seconds());
  EXPECT_EQ(TimeSpan(-120), CalendarTime(1000) - (CalendarTime(1000) + TimeSpan(0, 0, 2, 0)));
}

TEST(Bcd, BothWays) {
  for (int value = 0; value <= 99; ++value) {
    EXPECT_EQ(value / 10 * 16 + value % 10, ToBcd(value));
    EXPECT_EQ(value, FromBcd(ToBcd(value)));
  }
  EXPECT_EQ(0x07, ToBcd(256 + 7)) << "only the low byte counts";
  EXPECT_EQ(20, FromBcd(0x1A)) << "nibbles are not checked";
  EXPECT_EQ(165, FromBcd(0xFF));
}

}  // namespace
}  // namespace ostrel::test
