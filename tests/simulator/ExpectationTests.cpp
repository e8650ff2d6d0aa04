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

double Big(const Bytes& bytes, std::size_t from, std::size_t count) {
  double value = 0;
  for (std::size_t i = 0; i < count; ++i) value = value * 256 + bytes[from + i];
  return value;
}

/// 22 bits; the sign by the given bit of the first byte, or none.
double Quantity(OneMeter& one, const std::string& selector, int signBit) {
  const Bytes answer = Hex(one.Ask("08 11 " + selector));
  const double value = (answer[0] & 0x3F) * 65536.0 + answer[1] * 256.0 + answer[2];
  return signBit >= 0 && (answer[0] >> signBit & 1) != 0 ? -value : value;
}

/// The half impulses of constant 5000, primary side of ku 100 and ki 20.
constexpr const char* kPrimary = "1:1:ku=100:ki=20:at=2026-11-23T13:26:00";

TEST(Expectation, EnergiesAreThoseOfTheAnswers) {
  OneMeter one(kPrimary);
  one.Open();
  const struct {
    std::string_view request;
    std::uint32_t firstTag, step;
  } rows[] = {
      {"05 00 01", 9, 9},   {"05 00 08", 16, 9},  {"05 00 00", 17, 9},  {"08 0D", 45, 1},     {"05 40 00", 186, 6},
      {"05 50 00", 187, 6}, {"05 3B 00", 188, 6}, {"05 3A 00", 189, 6}, {"05 10 00", 190, 6}, {"05 20 00", 191, 6},
  };
  for (const auto& row : rows) {
    const Bytes answer = Hex(one.Ask(row.request));
    for (std::uint32_t kind = 0; kind < 4; ++kind) {
      const double value = Big(answer, kind * 4, 4) / 10000 * 100 * 20;
      EXPECT_DOUBLE_EQ(Number(one, row.firstTag + kind * row.step), value) << row.request << " kind " << kind;
      EXPECT_GT(value, 0) << row.request << " kind " << kind;
    }
  }
}

TEST(Expectation, QuantitiesAreThoseOfTheAnswers) {
  OneMeter one(kPrimary);  // at a minute of export
  one.Open();
  const struct {
    const char* selector;
    std::uint32_t tag;
    double scale;
    int signBit = -1;
  } rows[] = {
      {"01", 49, 2.0, 7}, {"02", 56, 2.0, 7}, {"03", 63, 2.0, 7}, {"00", 70, 2.0, 7}, {"05", 50, 2.0, 6}, {"04", 71, 2.0, 6},
      {"09", 51, 2.0},    {"08", 72, 2.0},    {"31", 52, 0.01},   {"30", 73, 0.01},   {"11", 54, 1.0},    {"13", 68, 1.0},
      {"21", 55, 0.002},  {"23", 69, 0.002},  {"40", 75, 0.01},   {"A1", 76, 0.01},   {"A3", 78, 0.01},   {"A5", 79, 0.01},
      {"A7", 81, 0.01},   {"A8", 82, 0.01},   {"15", 83, 0.01},   {"17", 85, 0.01},   {"18", 86, 0.01},   {"90", 87, 0.01},
      {"81", 88, 0.01},   {"83", 90, 0.01},   {"85", 91, 0.01},   {"87", 93, 0.01},
  };
  for (const auto& row : rows) {
    const double value = Quantity(one, row.selector, row.signBit) * row.scale;
    EXPECT_NEAR(Number(one, row.tag), value, 1e-9 * std::abs(value)) << row.selector;
    EXPECT_NE(value, 0) << row.selector;
  }
  EXPECT_LT(Number(one, 70), 0);
  EXPECT_GT(Number(one, 71), 0);
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
