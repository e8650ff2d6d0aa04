#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/meter/MeterParameters.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

class MeterParametersTest : public testing::Test {
 protected:
  CProtocol& Protocol() { return channel_.Protocol(); }
  ScriptedLine& Line() { return channel_.Line(); }

  TestChannel channel_;
  const std::uint32_t meter_ = channel_.AddMeter(0x10C, 1);
};

TEST_F(MeterParametersTest, ReadsTheMetersWallClockUnchecked) {
  Line().Expect("0C 04 00").Answer("0C 30 15 10 03 21 06 12 01");
  SYSTEMTIME time{};
  time.wMilliseconds = 5;
  ASSERT_EQ(1U, ReadMeterTime(Protocol(), meter_, time));
  EXPECT_EQ(2012, time.wYear);
  EXPECT_EQ(6, time.wMonth);
  EXPECT_EQ(3, time.wDayOfWeek);
  EXPECT_EQ(21, time.wDay);
  EXPECT_EQ(10, time.wHour);
  EXPECT_EQ(15, time.wMinute);
  EXPECT_EQ(30, time.wSecond);
  EXPECT_EQ(0, time.wMilliseconds);
  Line().Expect("0C 04 00").Answer("0C FF 99 1A 00 00 13 99 00");
  ASSERT_EQ(1U, ReadMeterTime(Protocol(), meter_, time));
  EXPECT_EQ(165, time.wSecond);
  EXPECT_EQ(99, time.wMinute);
  EXPECT_EQ(20, time.wHour);
  EXPECT_EQ(13, time.wMonth);
  EXPECT_EQ(2099, time.wYear);
}

TEST_F(MeterParametersTest, CoefficientsAreSignedAndHighByteFirst) {
  const struct {
    const char* answer;
    std::int16_t k1;
    std::int16_t k2;
  } rows[] = {
      {"0C 00 0A 00 14 00 00 00 00 00 00", 10, 20},
      {"0C 01 02 7F FF 11 22 33 44 55 66", 258, 32767},
      {"0C FF FF 80 00 00 00 00 00 00 00", -1, -32768},
  };
  for (const auto& row : rows) {
    Line().Expect("0C 08 02").Answer(row.answer);
    TransformCoefficients coefficients{};
    EXPECT_EQ(1U, ReadTransformCoefficients(Protocol(), meter_, 1, coefficients));
    EXPECT_EQ(row.k1, coefficients.K1) << row.answer;
    EXPECT_EQ(row.k2, coefficients.K2) << row.answer;
  }
}

TEST_F(MeterParametersTest, SomeTypesHaveNoCoefficients) {
  for (const std::uint32_t type : {2U, 12U}) {
    TransformCoefficients coefficients{};
    EXPECT_EQ(1U, ReadTransformCoefficients(Protocol(), meter_, type, coefficients));
    EXPECT_EQ(1, coefficients.K1);
    EXPECT_EQ(1, coefficients.K2);
  }
  EXPECT_EQ(0U, Line().RequestCount());
}

TEST_F(MeterParametersTest, PeriodOfEachProfile) {
  const struct {
    Profile profile;
    const char* request;
  } rows[] = {{Profile::Main, "0C 08 06"}, {Profile::Additional, "0C 08 06 01"}, {Profile::Third, "0C 08 06 02"}};
  for (const auto& row : rows) {
    Line().Expect(row.request).Answer("0C 77 1E");
    EXPECT_EQ(30U, ReadProfilePeriod(Protocol(), meter_, row.profile)) << row.request;
  }
  EXPECT_EQ(0U, ReadProfilePeriod(Protocol(), meter_, static_cast<Profile>(3)));
}

TEST_F(MeterParametersTest, FailuresLeaveTheOutputs) {
  Line().OnRequest([](auto) { return Frame("0C 0F"); });
  SYSTEMTIME time{};
  time.wYear = 77;
  TransformCoefficients coefficients{.K1 = 7, .K2 = 8};
  for (const std::uint32_t device : {meter_, meter_ + 1}) {
    EXPECT_EQ(0U, ReadMeterTime(Protocol(), device, time));
    EXPECT_EQ(0U, ReadTransformCoefficients(Protocol(), device, 1, coefficients));
    EXPECT_EQ(0U, ReadProfilePeriod(Protocol(), device, Profile::Main));
  }
  EXPECT_EQ(77, time.wYear);
  EXPECT_EQ(7, coefficients.K1);
  EXPECT_EQ(8, coefficients.K2);
  EXPECT_EQ(3U, channel_.LogLines().size()) << "one message for each request that was sent";
}

}  // namespace
}  // namespace ostrel::test
