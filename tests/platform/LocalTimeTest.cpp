#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

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

TEST(LocalTime, NothingLiesOutside1970To3000) {
  const test::TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << test::kInAnotherZone;
  EXPECT_FALSE(SecondsFromLocal({1970, 1, 1, 0, 59})) << "still 1969 in UTC";
  EXPECT_EQ(SecondsFromLocal({1970, 1, 1, 1, 0}), 0);
  for (const LocalFields& outside : {LocalFields{1969, 12, 31}, {3001, 1, 1}}) EXPECT_FALSE(SecondsFromLocal(outside));
  for (const std::int64_t outside : {std::int64_t{-1}, Utc(3001, 1, 1, 0, 0)}) EXPECT_FALSE(LocalFromSeconds(outside));
}

TEST(LocalTime, TheComputersWallClockFollowsTheInstalledClock) {
  const test::TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << test::kInAnotherZone;
  VirtualClock clock(Utc(2026, 10, 25, 0, 59) * 1000 + 59'250);
  ReplaceClock(&clock);
  constexpr SYSTEMTIME kShown[] = {{2026, 10, 0, 25, 2, 59, 59, 250}, {2026, 10, 0, 25, 2, 0, 0, 250}};  // summer, winter
  for (const SYSTEMTIME& shown : kShown) {
    const SYSTEMTIME now = LocalTime();
    EXPECT_EQ(std::memcmp(&now, &shown, sizeof now), 0) << now.wHour << ":" << now.wMinute << ":" << now.wSecond;
    Sleep(1000);
  }
  ReplaceClock(nullptr);
}

}  // namespace
}  // namespace ostrel::platform
