#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/meter/MeterParameters.h"
#include "tests/history/HistoryChannel.h"

namespace ostrel::test {
namespace {

TEST(MeterParameters, TheWallClockIsReadUnchecked) {
  HistoryChannel history(1);
  const struct {
    const char* answer;
    SYSTEMTIME time;  // year, month, weekday, day, hour, minute, second, millisecond
  } rows[] = {{"30 15 10 03 21 06 12 01", {2012, 6, 3, 21, 10, 15, 30, 0}},
              {"FF 99 1A 00 00 13 99 00", {2099, 13, 0, 0, 20, 99, 165, 0}}};
  for (const auto& row : rows) {
    history.Answer("04 00", row.answer);
    SYSTEMTIME time{};
    time.wMilliseconds = 5;
    ASSERT_EQ(1U, ReadMeterTime(history.Protocol(), 0, time));
    EXPECT_EQ(0, std::memcmp(&row.time, &time, sizeof time)) << row.answer;
  }
}

TEST(MeterParameters, CoefficientsAreSignedAndSomeTypesHaveNone) {
  HistoryChannel history(1);
  const struct {
    const char* answer;
    std::uint32_t type;
    std::int16_t k1;
    std::int16_t k2;
  } rows[] = {
      {"00 0A 00 14 00 00 00 00 00 00", 1, 10, 20},     {"01 02 7F FF 11 22 33 44 55 66", 1, 258, 32767},
      {"FF FF 80 00 00 00 00 00 00 00", 1, -1, -32768}, {"00 0A 00 14 00 00 00 00 00 00", 2, 1, 1},
      {"00 0A 00 14 00 00 00 00 00 00", 12, 1, 1},
  };
  for (const auto& row : rows) {
    history.Answer("08 02", row.answer);
    TransformCoefficients coefficients{};
    EXPECT_EQ(1U, ReadTransformCoefficients(history.Protocol(), 0, row.type, coefficients));
    EXPECT_EQ(row.k1, coefficients.K1) << row.answer;
    EXPECT_EQ(row.k2, coefficients.K2) << row.answer;
  }
  EXPECT_EQ(3U, history.Take().size());
}

TEST(MeterParameters, FailuresLeaveTheOutputs) {
  HistoryChannel history(1);
  history.Answer("", "0F");
  SYSTEMTIME time{};
  time.wYear = 77;
  TransformCoefficients coefficients{.K1 = 7, .K2 = 8};
  for (const std::uint32_t device : {0U, 1U}) {
    EXPECT_EQ(0U, ReadMeterTime(history.Protocol(), device, time));
    EXPECT_EQ(0U, ReadTransformCoefficients(history.Protocol(), device, 1, coefficients));
    EXPECT_EQ(0U, ReadProfilePeriod(history.Protocol(), device, Profile::Main));
  }
  EXPECT_EQ(0U, ReadProfilePeriod(history.Protocol(), 0, static_cast<Profile>(3)));
  EXPECT_EQ(77, time.wYear);
  EXPECT_EQ(7, coefficients.K1);
  EXPECT_EQ(8, coefficients.K2);
  EXPECT_EQ(3U, history.LogLines().size()) << "one message for each request that was sent";
}

}  // namespace
}  // namespace ostrel::test
