#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "Protocol/model/Bcd.h"
#include "Protocol/model/CalendarTime.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

std::string Text(const CalendarTime& time) {
  SYSTEMTIME f{};
  if (!time.ToFields(f)) return "";
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d/%d", f.wYear, f.wMonth, f.wDay, f.wHour, f.wMinute,
                f.wSecond, f.wMilliseconds, f.wDayOfWeek);
  return text;
}

TEST(CalendarTime, ChecksEachFieldBeforeTheWhole) {
  const TimeZone zone("UTC");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  const struct {
    int fields[6];
    HRESULT failure;  // S_OK for an instant
    std::int64_t seconds;
  } rows[] = {
      {{1970, 1, 1, 0, 0, 0}, S_OK, 0},
      {{2026, 11, 22, 20, 0, 0}, S_OK, 1795377600},
      {{2026, 2, 31, 12, 0, 0}, S_OK, 1772539200},  // runs over to 3 March
      {{1899, 1, 1, 0, 0, 0}, E_FAIL, 0},
      {{2026, 0, 1, 0, 0, 0}, E_FAIL, 0},
      {{2026, 13, 1, 0, 0, 0}, E_FAIL, 0},
      {{2026, 1, 0, 0, 0, 0}, E_FAIL, 0},
      {{2026, 1, 32, 0, 0, 0}, E_FAIL, 0},
      {{2026, 1, 1, 24, 0, 0}, E_FAIL, 0},
      {{2026, 1, 1, -1, 0, 0}, E_FAIL, 0},
      {{2026, 1, 1, 0, 60, 0}, E_FAIL, 0},
      {{2026, 1, 1, 0, 0, 60}, E_FAIL, 0},
      {{1900, 1, 1, 0, 0, 0}, E_INVALIDARG, 0},
      {{1969, 12, 31, 0, 0, 0}, E_INVALIDARG, 0},
      {{3002, 1, 1, 0, 0, 0}, E_INVALIDARG, 0},
  };
  for (const auto& row : rows) {
    const auto& f = row.fields;
    SCOPED_TRACE(testing::PrintToString(f));
    HRESULT failure = S_OK;
    const auto time = CalendarTime::Make(f[0], f[1], f[2], f[3], f[4], f[5], &failure);
    EXPECT_EQ(row.failure, failure);
    ASSERT_EQ(row.failure == S_OK, time.has_value());
    EXPECT_EQ(row.seconds, time.value_or(CalendarTime(0)).Seconds());
    EXPECT_EQ(time.has_value(), CalendarTime::Make(f[0], f[1], f[2], f[3], f[4], f[5]).has_value());
  }
}

TEST(CalendarTime, ReadsBackInTheComputersZone) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  const CalendarTime time(1785537045);  // 2026-07-31 22:30:45 UTC
  EXPECT_EQ("2026-08-01 00:30:45.000/6", Text(time));
  const int shown[] = {time.GetYear(),   time.GetMonth(),  time.GetDay(),      time.GetHour(),
                       time.GetMinute(), time.GetSecond(), time.GetDayOfWeek()};
  EXPECT_THAT(shown, testing::ElementsAre(2026, 8, 1, 0, 30, 45, 7));
  SYSTEMTIME fields{};
  ASSERT_TRUE(time.ToFields(fields));
  EXPECT_EQ(time, CalendarTime::FromFields(fields));
}

TEST(CalendarTime, SaysWhatCannotBeReadBack) {
  for (const std::int64_t seconds :
       {std::int64_t{-1}, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    const CalendarTime time(seconds);
    SYSTEMTIME fields{
        .wYear = 7, .wMonth = 7, .wDayOfWeek = 7, .wDay = 7, .wHour = 7, .wMinute = 7, .wSecond = 7, .wMilliseconds = 7};
    EXPECT_FALSE(time.ToFields(fields));
    EXPECT_EQ(7, fields.wYear);
    EXPECT_EQ(7, fields.wMilliseconds);
    const int shown[] = {time.GetYear(),   time.GetMonth(),  time.GetDay(),      time.GetHour(),
                         time.GetMinute(), time.GetSecond(), time.GetDayOfWeek()};
    EXPECT_THAT(shown, testing::ElementsAre(0, 0, 0, -1, -1, -1, 0));
  }
}

TEST(CalendarTime, ADayIsAlways86400Seconds) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  // Midnights going back across the changes of 2026-10-25 and 2026-03-29.
  auto autumn = CalendarTime::Make(2026, 10, 26, 0, 0, 0).value();
  autumn -= TimeSpan(1, 0, 0, 0);
  EXPECT_EQ("2026-10-25 01:00:00.000/0", Text(autumn));
  EXPECT_EQ("2026-10-24 01:00:00.000/6", Text(autumn - TimeSpan(1, 0, 0, 0)));
  auto spring = CalendarTime::Make(2026, 3, 30, 0, 0, 0).value();
  spring -= TimeSpan(1, 0, 0, 0);
  EXPECT_EQ("2026-03-28 23:00:00.000/6", Text(spring));
  EXPECT_EQ("2026-03-30 00:00:00.000/1", Text(spring += TimeSpan(1, 0, 0, 0)));
}

TEST(CalendarTime, SpansAndInstantsReckonInSeconds) {
  EXPECT_EQ(((2 * 24 + 3) * 60 + 4) * 60 + 5, TimeSpan(2, 3, 4, 5).Seconds());
  EXPECT_EQ(-60, TimeSpan(0, 0, -1, 0).Seconds());
  EXPECT_EQ(TimeSpan(-120), CalendarTime(1000) - (CalendarTime(1000) + TimeSpan(0, 0, 2, 0)));
  EXPECT_LE(CalendarTime(1000), CalendarTime(1000));
}

TEST(Bcd, BothWays) {
  for (int value = 0; value <= 99; ++value) {
    const std::uint8_t packed = ToBcd(value);
    EXPECT_EQ(value / 10, packed >> 4);
    EXPECT_EQ(value % 10, packed & 0x0F);
    EXPECT_EQ(value, FromBcd(packed));
  }
  EXPECT_EQ(0x07, ToBcd(256 + 7)) << "only the low byte counts";
  EXPECT_EQ(20, FromBcd(0x1A)) << "nibbles are not checked";
  EXPECT_EQ(165, FromBcd(0xFF));
}

}  // namespace
}  // namespace ostrel::test
