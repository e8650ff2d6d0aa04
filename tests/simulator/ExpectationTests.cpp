// What the model says a tag must read, against the meter's answers decoded here by hand.
#include <gtest/gtest.h>

#include "simulator/Expectation.h"
#include "tests/simulator/OneMeter.h"

namespace ostrel::test {
namespace {

double Number(OneMeter& one, std::uint32_t tag) {
  const auto expected = sim::ExpectedTag(one.meter.View(one.now), tag);
  if (!expected || !std::holds_alternative<double>(*expected)) return -1e30;
  return std::get<double>(*expected);
}

std::string Text(OneMeter& one, std::uint32_t tag, std::uint8_t log = 1) {
  const auto expected = sim::ExpectedTag(one.meter.View(one.now), tag, log);
  if (!expected || !std::holds_alternative<std::string>(*expected)) return "(none)";
  return std::get<std::string>(*expected);
}

TEST(Expectation, TextsAndParameters) {
  OneMeter one("77:11:constant=250:serial=42:location=Цех 3:at=2026-11-23T13:26:00");
  one.Open();
  const std::pair<std::uint32_t, std::string_view> texts[] = {
      {0, "N 00000042"}, {1, "15/02/23"}, {3, "b.2.a"},          {95, "нет"},
      {96, "Цех 3"},     {184, "нет"},    {183, "ПСЧ-4ТМ.05МК"}, {106, "(none)"},
  };
  for (const auto& [tag, text] : texts) EXPECT_EQ(Text(one, tag, 4), text) << tag;
  const std::pair<std::uint32_t, double> numbers[] = {
      {2, 77}, {4, 250}, {5, -40}, {6, 1}, {8, 1}, {210, 1}, {212, 1}, {213, 1}, {223, 2050}, {227, 2025}, {242, 8025},
  };
  for (const auto& [tag, number] : numbers) EXPECT_DOUBLE_EQ(Number(one, tag), number) << tag;
  const Bytes stamp = Hex(one.Ask("09 04 13"));
  EXPECT_EQ(Text(one, 180, 4), ToHex({&stamp[2], 1}) + ":" + ToHex({&stamp[1], 1}) + ":" + ToHex({&stamp[0], 1}));
  EXPECT_EQ(Text(one, 179, 4), ToHex({&stamp[4], 1}) + "." + ToHex({&stamp[5], 1}) + "." + ToHex({&stamp[6], 1}) + " ");
  EXPECT_EQ(one.Ask("03 18 04"), "00");
  EXPECT_EQ(Text(one, 184), "да");
}

TEST(Expectation, HasNothingForWhatIsNotReadOrNotThere) {
  OneMeter one("1:1");
  for (const std::uint32_t tag : {53U, 60U, 67U, 74U, 97U, 98U, 99U, 100U, 101U, 102U, 185U, 211U, 244U}) {
    EXPECT_FALSE(sim::ExpectedTag(one.meter.View(kNoon), tag)) << tag;
  }
  OneMeter single("1:2");
  for (const std::uint32_t tag : {6U, 13U, 18U, 52U, 56U, 94U, 192U, 223U}) {
    EXPECT_FALSE(sim::ExpectedTag(single.meter.View(kNoon), tag)) << tag;
  }
}

}  // namespace
}  // namespace ostrel::test
