#include <gtest/gtest.h>

#include "simulator/MeterTypes.h"
#include "tests/simulator/OneMeter.h"

namespace ostrel::sim {
namespace {

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
    const MeterVariant variant = DescribeVariant(*test::Spec(row.text).variant);
    EXPECT_EQ(variant.constant, row.constant) << row.text;
    EXPECT_EQ(variant.powerScale, row.scale) << row.text;
    EXPECT_EQ(variant.name, row.name) << row.text;
  }
}

}  // namespace
}  // namespace ostrel::sim
