#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/local_time.h"
#include "platform/virtual_clock.h"
#include "tests/support/TimeZone.h"

namespace ostrel::platform {
namespace {

std::int64_t Utc(int year, unsigned month, unsigned day, int hour, int minute) {
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  return std::chrono::seconds(date.time_since_epoch()).count() + hour * 3600 + minute * 60;
}

std::string Text(const LocalFields& f) {
  const auto two = [](int value) { return (value < 10 ? "0" : "") + std::to_string(value); };
  return std::to_string(f.year) + "-" + two(f.month) + "-" + two(f.day) + " " + two(f.hour) + ":" + two(f.minute);
}

class LocalTimeTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!berlin_.Applies()) GTEST_SKIP() << test::kInAnotherZone;
  }

  const test::TimeZone berlin_{"Europe/Berlin"};
};

struct Row {
  const char* zone;
  LocalFields local;
  std::int64_t utc;
  bool readsBackTheSame = true;
};

// Berlin turns its clocks at 01:00 UTC on 2026-03-29 and 2026-10-25. Moscow's went from +4 to +3 at 22:00 UTC on
// 2014-10-25 and from +3 to +4 at 23:00 UTC on 2011-03-26, with no summer time on either side; Dublin's winter is what its rules
// call the exception.
const Row kRows[] = {
    {"Europe/Berlin", {2026, 1, 15, 12, 0}, Utc(2026, 1, 15, 11, 0)},
    {"Europe/Berlin", {2026, 7, 15, 12, 0}, Utc(2026, 7, 15, 10, 0)},
    {"Europe/Berlin", {2026, 3, 29, 1, 59}, Utc(2026, 3, 29, 0, 59)},
    {"Europe/Berlin", {2026, 3, 29, 2, 0}, Utc(2026, 3, 29, 0, 0), false},
    {"Europe/Berlin", {2026, 3, 29, 2, 30}, Utc(2026, 3, 29, 0, 30), false},
    {"Europe/Berlin", {2026, 3, 29, 3, 0}, Utc(2026, 3, 29, 1, 0)},
    {"Europe/Berlin", {2026, 10, 25, 1, 59}, Utc(2026, 10, 24, 23, 59)},
    {"Europe/Berlin", {2026, 10, 25, 2, 0}, Utc(2026, 10, 25, 1, 0)},
    {"Europe/Berlin", {2026, 10, 25, 2, 59}, Utc(2026, 10, 25, 1, 59)},
    {"Europe/Berlin", {2026, 10, 25, 3, 0}, Utc(2026, 10, 25, 2, 0)},
    {"Europe/Berlin", {2026, 2, 31, 10, 0}, Utc(2026, 3, 3, 9, 0), false},
    {"Europe/Moscow", {2014, 10, 26, 0, 59}, Utc(2014, 10, 25, 20, 59)},
    {"Europe/Moscow", {2014, 10, 26, 1, 30}, Utc(2014, 10, 25, 22, 30)},
    {"Europe/Moscow", {2011, 3, 27, 2, 30}, Utc(2011, 3, 26, 22, 30), false},
    {"Europe/Dublin", {2026, 1, 15, 12, 0}, Utc(2026, 1, 15, 12, 0)},
    {"Europe/Dublin", {2026, 7, 15, 12, 0}, Utc(2026, 7, 15, 11, 0)},
    {"UTC", {1970, 1, 1, 0, 0}, 0},
    {"UTC", {3000, 12, 31, 23, 59}, Utc(3000, 12, 31, 23, 59)},
};

TEST(LocalTime, EveryWallClockHasOneInstantWhateverWasAskedBefore) {
  const LocalFields probes[] = {{2026, 1, 1}, {2026, 7, 1}, {2011, 3, 1}, {2011, 4, 1}, {2014, 10, 1}, {2014, 11, 1}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.zone) + " " + Text(row.local));
    const test::TimeZone zone(row.zone);
    if (!zone.Applies()) continue;
    for (const LocalFields& probe : probes) {
      ASSERT_TRUE(SecondsFromLocal(probe));
      EXPECT_EQ(SecondsFromLocal(row.local), row.utc) << "after " << Text(probe);
    }
    EXPECT_EQ(Text(LocalFromSeconds(row.utc).value()) == Text(row.local), row.readsBackTheSame);
  }
}

std::vector<std::string> HalfHours(LocalFields from, const LocalFields& last) {
  std::vector<std::string> walked;
  while (walked.size() < 20) {
    walked.push_back(Text(from).substr(11));
    if (walked.back() == Text(last).substr(11)) break;
    from = LocalFromSeconds(SecondsFromLocal(from).value() + 1800).value();
  }
  return walked;
}

TEST_F(LocalTimeTest, AWalkInHalfHoursPassesBothChanges) {
  EXPECT_EQ(HalfHours({2026, 3, 29, 1, 0}, {2026, 3, 29, 3, 30}), (std::vector<std::string>{"01:00", "01:30", "03:00", "03:30"}));
  EXPECT_EQ(HalfHours({2026, 10, 25, 1, 0}, {2026, 10, 25, 3, 30}),
            (std::vector<std::string>{"01:00", "01:30", "02:00", "02:30", "03:00", "03:30"}));
}

TEST_F(LocalTimeTest, NothingLiesOutside1970To3000) {
  EXPECT_FALSE(SecondsFromLocal({1970, 1, 1, 0, 59})) << "still 1969 in UTC";
  EXPECT_EQ(SecondsFromLocal({1970, 1, 1, 1, 0}), 0);
  EXPECT_FALSE(SecondsFromLocal({1969, 12, 31}));
  EXPECT_FALSE(SecondsFromLocal({3001, 1, 1}));
  EXPECT_FALSE(LocalFromSeconds(-1));
  EXPECT_TRUE(LocalFromSeconds(Utc(3000, 12, 31, 23, 59)));
  EXPECT_FALSE(LocalFromSeconds(Utc(3001, 1, 1, 0, 0)));
}

TEST_F(LocalTimeTest, TheComputersWallClockFollowsTheInstalledClock) {
  VirtualClock clock(Utc(2026, 10, 25, 0, 59) * 1000 + 59'250);
  ReplaceClock(&clock);
  const SYSTEMTIME summer = LocalTime();
  Sleep(1000);
  const SYSTEMTIME standard = LocalTime();
  ReplaceClock(nullptr);
  EXPECT_EQ(summer.wHour, 2);
  EXPECT_EQ(summer.wMinute, 59);
  EXPECT_EQ(summer.wSecond, 59);
  EXPECT_EQ(summer.wMilliseconds, 250);
  EXPECT_EQ(standard.wYear, 2026);
  EXPECT_EQ(standard.wMonth, 10);
  EXPECT_EQ(standard.wDay, 25);
  EXPECT_EQ(standard.wDayOfWeek, 0);
  EXPECT_EQ(standard.wHour, 2);
  EXPECT_EQ(standard.wMinute, 0);
  EXPECT_EQ(standard.wSecond, 0);
  EXPECT_EQ(standard.wMilliseconds, 250);
}

}  // namespace
}  // namespace ostrel::platform
