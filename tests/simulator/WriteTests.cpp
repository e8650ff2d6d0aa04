#include <gtest/gtest.h>

#include "tests/simulator/OneMeter.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

TEST(Writes, OutOfRangeAreRefusedAndChangeNothing) {
  const struct {
    std::string_view command, request, answer;
  } rows[] = {
      {"03 18 02", "08 09", "00 00"},
      {"03 2F 07 00 00 00 00 1A", "08 20 08 00", "00 01"},
      {"03 2F 07 00 00 00 00 00", "08 20 08 00", "00 01"},
      {"03 2F 04 05 00 00 27 10", "08 20 04 00", "00 0F 73 14"},
      {"03 2F 08 02 00 01 00 00", "08 20 09 02", "0E A6"},
      {"03 2F 08 04 00 00 00 01", "08 20 09 03", "0C 35"},
  };
  for (const auto& row : rows) {
    OneMeter one("1:1");
    one.Open();
    EXPECT_EQ(one.Ask(row.command), "01") << row.command;
    EXPECT_EQ(one.Ask(row.request), row.answer) << row.command;
  }
}

TEST(Writes, KeepTheIndicationPeriodAndLeaveSinglePhaseCoefficientsAlone) {
  OneMeter one("1:2");
  one.Open();
  EXPECT_EQ(one.Ask("03 07 0A"), "00");
  EXPECT_EQ(one.meter.View(one.now).settings.indicationPeriodSeconds, 10);
  EXPECT_EQ(one.Ask("03 1B 00 02"), "01");
  EXPECT_EQ(one.Ask("08 02").substr(0, 11), "00 01 00 01");
}

std::string Clock(OneMeter& one) { return one.Ask("04 00").substr(0, 20); }

TEST(ClockWrites, CorrectionsReachTwoMinutesOnceADay) {
  const TimeZone utc("UTC");
  const struct {
    std::string_view command, status, clock;
  } rows[] = {
      {"03 0D 00 02 12", "00", "00 02 12 07 22 11 26"}, {"03 0D 00 58 11", "00", "00 58 11 07 22 11 26"},
      {"03 0D 10 02 12", "04", "00 00 12 07 22 11 26"}, {"03 0D 00 00 00", "04", "00 00 12 07 22 11 26"},
      {"03 0D 60 00 12", "01", "00 00 12 07 22 11 26"}, {"03 0D 0A 00 12", "01", "00 00 12 07 22 11 26"},
  };
  for (const auto& row : rows) {
    OneMeter one("1:1");
    one.Open();
    EXPECT_EQ(one.Ask(row.command), row.status) << row.command;
    EXPECT_EQ(Clock(one), row.clock) << row.command;
  }
  OneMeter one("1:1");
  one.Open();
  EXPECT_EQ(one.Ask("03 0D 30 00 12"), "00");
  EXPECT_EQ(one.Ask("03 0D 00 00 12"), "04");
  one.now += 86400000;
  one.Open();
  EXPECT_EQ(one.Ask("03 0D 00 00 12"), "00");
  EXPECT_EQ(Clock(one), "00 00 12 01 23 11 26");
}

TEST(ClockWrites, CorrectionsGoAcrossMidnight) {
  const TimeZone utc("UTC");
  OneMeter one("1:1:offset_s=43230");  // 00:00:30 of the next day
  one.Open();
  EXPECT_EQ(one.Ask("03 0D 30 59 23"), "00");
  EXPECT_EQ(Clock(one), "30 59 23 07 22 11 26");
}

TEST(ClockWrites, SettingTakesAnyRealDate) {
  const TimeZone utc("UTC");
  OneMeter one("1:1");
  one.Open();
  EXPECT_EQ(one.Ask("03 0C 42 07 14 07 08 03 26 01"), "00");
  one.now += 20000;
  EXPECT_EQ(Clock(one), "02 08 14 07 08 03 26");
  for (const char* refused : {"03 0C 42 07 14 06 08 03 26 01", "03 0C 42 07 14 01 30 02 26 01", "03 0C 42 07 24 07 08 03 26 01",
                              "03 0C 42 07 14 07 08 13 26 01", "03 0C 42 07 14 07 08 03 2F 01"}) {
    EXPECT_EQ(one.Ask(refused), "01") << refused;
  }
  EXPECT_EQ(Clock(one), "02 08 14 07 08 03 26");
}

TEST(ClockWrites, OffsetAndDriftAdd) {
  const TimeZone utc("UTC");
  OneMeter one("1:1:offset_s=-600:drift_ppm=1000");
  one.Open();
  EXPECT_EQ(Clock(one), "00 50 11 07 22 11 26");
  one.now += 100000;
  EXPECT_EQ(Clock(one), "40 51 11 07 22 11 26");  // 100.1 s
  one.now += 900000;
  one.Open();
  EXPECT_EQ(Clock(one), "41 06 12 07 22 11 26");  // 1001 s
}

TEST(ClockWrites, SeasonsComeUnlessInhibited) {
  const TimeZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
  constexpr std::int64_t kBeforeChange = 1792889999000;  // 2026-10-25 00:59:59 UTC, 02:59:59 summer time
  for (const auto& [spec, inhibited] : {std::pair{"1:1", false}, {"1:1", true}, {"1:1:dst=1", false}, {"1:1:dst=1", true}}) {
    SCOPED_TRACE(spec);
    OneMeter one(spec);
    one.now = kBeforeChange;
    one.Open();
    EXPECT_EQ(one.Ask(inhibited ? "03 18 01" : "03 18 00"), "00");
    EXPECT_EQ(Clock(one), "59 59 02 07 25 10 26");
    one.now += 1000;
    EXPECT_EQ(Clock(one), inhibited ? "00 00 03 07 25 10 26" : "00 00 02 07 25 10 26");
  }
}

}  // namespace
}  // namespace ostrel::test
