#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/local_time.h"
#include "platform/virtual_clock.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::platform {
namespace {

LocalFields Fields(const std::string& text) {
  LocalFields fields;
  EXPECT_EQ(5,
            std::sscanf(text.c_str(), "%d-%d-%d %d:%d", &fields.year, &fields.month, &fields.day, &fields.hour, &fields.minute))
      << text;
  return fields;
}

std::string Text(const LocalFields& f) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d", f.year, f.month, f.day, f.hour, f.minute);
  return text;
}

std::int64_t Utc(const std::string& text) {
  const LocalFields f = Fields(text);
  const std::chrono::sys_days date = std::chrono::year(f.year) / f.month / f.day;
  return std::chrono::seconds(date.time_since_epoch()).count() + f.hour * 3600 + f.minute * 60;
}

TEST(LocalTime, EveryWallClockHasOneInstantWhateverWasAskedBefore) {
  const LocalFields probes[] = {{2026, 1, 1}, {2026, 7, 1}, {2011, 3, 1}, {2011, 4, 1}, {2014, 10, 1}, {2014, 11, 1}};
  for (const test::TableRow& row : test::ReadTable("platform/wall_clocks.tsv", 4)) {
    SCOPED_TRACE(row[0] + " " + row[1]);
    const test::TimeZone zone(row[0]);
    if (!zone.Applies()) continue;
    for (const LocalFields& probe : probes) {
      ASSERT_TRUE(SecondsFromLocal(probe));
      EXPECT_EQ(SecondsFromLocal(Fields(row[1])), Utc(row[2])) << "after " << Text(probe);
    }
    EXPECT_EQ(Text(LocalFromSeconds(Utc(row[2])).value()) == row[1], row[3] == "=");
  }
}

TEST(LocalTime, NothingLiesOutside1970To3000) {
  const test::TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << test::kInAnotherZone;
  EXPECT_FALSE(SecondsFromLocal({1970, 1, 1, 0, 59})) << "still 1969 in UTC";
  EXPECT_EQ(SecondsFromLocal({1970, 1, 1, 1, 0}), 0);
  for (const LocalFields& outside : {LocalFields{1969, 12, 31}, {3001, 1, 1}}) EXPECT_FALSE(SecondsFromLocal(outside));
  for (const std::int64_t outside : {std::int64_t{-1}, Utc("3001-01-01 00:00")}) EXPECT_FALSE(LocalFromSeconds(outside));
}

TEST(LocalTime, TheComputersWallClockFollowsTheInstalledClock) {
  const test::TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << test::kInAnotherZone;
  VirtualClock clock(Utc("2026-10-25 00:59") * 1000 + 59'250);
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
