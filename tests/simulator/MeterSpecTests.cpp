#include <gtest/gtest.h>

#include "simulator/MeterSpec.h"
#include "simulator/MeterTypes.h"

namespace ostrel::sim {
namespace {

TEST(MeterSpec, ReadsEveryKey) {
  MeterSpec spec;
  std::string error;
  ASSERT_TRUE(
      ParseMeterSpec("12:8:password1=abc:password2=:serial=7:location=ПС-1:variant=00408B:ku=100:ki=20:offset_s=-600:"
                     "drift_ppm=50:channel_timeout_s=10:closed=each:busy=3:refuse=4:unknown=0811A1:silent=1:"
                     "log_events=2:freeze=1:at=2026-11-22T10:00:05:seed=9:dst=1:installed=2026-01-02T00:00:00:"
                     "powercut=2026-11-20T10:10:00/2026-11-20T13:20:00:powercut=2026-11-21T00:00:00/2026-11-21T00:00:01:"
                     "period=60:period2=4:period3=15:searchpolls=7",
                     spec, error))
      << error;
  EXPECT_EQ(spec.address, 12U);
  EXPECT_EQ(spec.type, 8U);
  EXPECT_EQ(spec.password1, "abc");
  EXPECT_EQ(spec.serial, 7U);
  EXPECT_EQ(spec.location, "ПС-1");
  EXPECT_EQ(DescribeVariant(*spec.variant).name, "СЭТ-4ТМ.02М");
  EXPECT_EQ(spec.ku * spec.ki, 2000);
  EXPECT_EQ(spec.offsetSeconds, -600);
  EXPECT_EQ(spec.driftPpm, 50);
  EXPECT_EQ(spec.channelTimeoutSeconds, 10U);
  EXPECT_TRUE(spec.closesAfterEach && spec.silent);
  EXPECT_EQ(spec.busyEvery, 3U);
  EXPECT_EQ(spec.refuseEvery, 4U);
  EXPECT_EQ(spec.unknown, (std::vector<std::uint8_t>{0x08, 0x11, 0xA1}));
  EXPECT_EQ(spec.logEvents, 2U);
  EXPECT_EQ(spec.frozenAt, FromCivil({2026, 11, 22, 10, 0, 5}));
  EXPECT_EQ(spec.seed, 9U);
  EXPECT_TRUE(spec.summerTime);
  EXPECT_EQ(spec.installed, FromCivil({2026, 1, 2}));
  ASSERT_EQ(spec.powerCuts.size(), 2U);
  EXPECT_EQ(spec.powerCuts[0].from, FromCivil({2026, 11, 20, 10, 10}));
  EXPECT_EQ(spec.powerCuts[0].to, FromCivil({2026, 11, 20, 13, 20}));
  EXPECT_EQ(spec.profileMinutes, (std::array<std::uint8_t, 3>{60, 4, 15}));
  EXPECT_EQ(spec.searchPolls, 7U);
}

TEST(MeterSpec, ErrorsNameTheKey) {
  const struct {
    std::string_view text, error;
  } rows[] = {
      {"", "address: \"\" is not 1..254"},
      {"0:1", "address: \"0\" is not 1..254"},
      {"255:1", "address: \"255\" is not 1..254"},
      {"12", "type: \"\" is not one of"},
      {"12:4", "type: \"4\" is not one of"},
      {"12:1:ku", "ku: \"\" is not 1..65535"},
      {"12:1:ku=0", "ku: \"0\" is not 1..65535"},
      {"12:1:ku=65536", "ku: \"65536\" is not 1..65535"},
      {"12:1:ki=1x", "ki: \"1x\" is not 1..65535"},
      {"12:1:colour=red", "unknown key \"colour\""},
      {"12:1:password1=1234567", "password1: \"1234567\" is not at most 6 characters"},
      {"12:1:variant=0140", "variant: \"0140\" is not three bytes in hex"},
      {"12:1:constant=500", "constant: \"500\" is not a constant that this type is made with"},
      {"12:1:closed=always", "closed: \"always\" is not \"each\" or \"pause\""},
      {"12:1:at=2026-02-29T10:00:00:busy=2", "at: \"2026-02-29T10:00:00\" is not a time"},
      {"12:1:log_events=21", "log_events: \"21\" is not 0..20"},
      {"12:1:installed=2023-12-31T23:00:00", "installed: \"2023-12-31T23:00:00\" is not a time"},
      {"12:1:powercut=2026-11-20T10:10:00", "powercut: \"2026-11-20T10:10:00\" is not two times"},
      {"12:1:powercut=2026-11-20T10:10:00/2026-11-20T10:10:00", "powercut: "},
      {"12:1:period=45", "period: \"45\" is not 3, 4, 5"},
      {"12:1:period=2", "period: \"2\" is not 3, 4, 5"},
      {"12:1:period3=30", "period3: \"30\" is not 3, 4, 5"},
      {"12:2:ku=100", "ku: a single-phase meter has no transformers"},
  };
  for (const auto& row : rows) {
    MeterSpec spec;
    std::string error;
    EXPECT_FALSE(ParseMeterSpec(row.text, spec, error)) << row.text;
    EXPECT_EQ(error.substr(0, row.error.size()), row.error) << row.text;
  }
}

TEST(MeterSpec, ConstantsChooseAVariantThatHasThem) {
  const struct {
    std::string_view text;
    std::uint32_t constant, scale;
    std::string_view name;
  } rows[] = {
      {"1:0:constant=25000", 25000, 1, "СЭТ-4ТМ.02/СЭТ-1М.01"},
      {"1:1:constant=1250", 1250, 2, "СЭТ-4ТМ.03"},
      {"1:8:constant=6250", 6250, 1, "СЭТ-4ТМ.03М"},
      {"1:11:constant=250", 250, 20, "ПСЧ-4ТМ.05МК"},
      {"1:12:constant=500", 500, 10, "СЭБ-1ТМ.02М"},
  };
  for (const auto& row : rows) {
    MeterSpec spec;
    std::string error;
    ASSERT_TRUE(ParseMeterSpec(row.text, spec, error)) << row.text << ": " << error;
    const MeterVariant variant = DescribeVariant(*spec.variant);
    EXPECT_EQ(variant.constant, row.constant) << row.text;
    EXPECT_EQ(variant.powerScale, row.scale) << row.text;
    EXPECT_EQ(variant.name, row.name) << row.text;
  }
}

TEST(MeterCalendar, GoesBothWaysThroughLeapYearsAndYearEnds) {
  const struct {
    CivilTime civil;
    MeterTime time;
  } rows[] = {
      {{1970, 1, 1, 0, 0, 0, 4}, 0},
      {{2000, 2, 29, 12, 30, 45, 2}, 951827445},
      {{2024, 12, 31, 23, 59, 59, 2}, 1735689599},
      {{2026, 11, 22, 10, 0, 0, 7}, 1795341600},
      {{1969, 12, 31, 23, 59, 59, 3}, -1},
  };
  for (const auto& [civil, time] : rows) {
    EXPECT_EQ(FromCivil(civil), time);
    const CivilTime back = ToCivil(time);
    EXPECT_EQ(back.year * 10000 + back.month * 100 + back.day, civil.year * 10000 + civil.month * 100 + civil.day) << time;
    EXPECT_EQ(back.weekday, civil.weekday) << time;
    EXPECT_EQ(FromCivil(back), time);
  }
  EXPECT_EQ(StartOfMonth(1795341600, -11), FromCivil({.year = 2025, .month = 12}));
  EXPECT_EQ(StartOfMonth(1795341600, 2), FromCivil({.year = 2027, .month = 1}));
}

}  // namespace
}  // namespace ostrel::sim
