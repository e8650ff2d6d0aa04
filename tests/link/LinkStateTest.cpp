// Link flags with the failure hold, and the messages for the operator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/link/LinkState.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(LinkState, TheHoldStartsWithTheFirstFailureOnly) {
  TestChannel channel({.startTick = 0xFFFFFF00});  // the count wraps within the hold
  channel.AddMeter(12, 1, {.failHoldMs = 1000});
  DeviceEntry& entry = channel.Entry(0);
  UpdateLinkState(channel.Protocol(), 0, false);
  EXPECT_EQ(0xFFFFFF00U, entry.FailHoldTimer.start);
  channel.Clock().Advance(600);
  UpdateLinkState(channel.Protocol(), 0, false);
  EXPECT_EQ(0xFFFFFF00U, entry.FailHoldTimer.start);
  EXPECT_EQ(0U, channel.Protocol().CanPollDevice(0));
  UpdateLinkState(channel.Protocol(), 0, true);
  EXPECT_EQ(0U, entry.FailHold);
  EXPECT_EQ(1U, channel.Protocol().CanPollDevice(0));
  UpdateLinkState(channel.Protocol(), 0, false);
  EXPECT_EQ(0xFFFFFF00U + 600U, entry.FailHoldTimer.start);
  EXPECT_EQ(1000U, entry.FailHoldTimer.period);
}

TEST(LinkState, ExactlyOneFlagStands) {
  TestChannel channel;
  channel.AddMeter(12, 1);
  for (const bool success : {true, true, false, false, true}) {
    UpdateLinkState(channel.Protocol(), 0, success);
    EXPECT_EQ(success ? 1U : 0U, channel.Entry(0).LinkUp);
    EXPECT_EQ(success ? 0U : 1U, channel.Entry(0).LinkDown);
  }
  UpdateLinkState(channel.Protocol(), 1, false);  // no such meter
}

/// The bytes are what operators' tools search for, so they are written out here in code page 1251.
TEST(Events, HaveTheseTexts) {
  struct Row {
    std::uint32_t code;
    const char* line;
  };
  const Row rows[] = {
      {2, "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCF\xF0\xE8\xED\xFF\xF2 \xEE\xF8\xE8\xE1\xEE\xF7\xED\xFB\xE9 \xEF\xE0\xEA\xE5\xF2"},
      {3,
       "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCD\xE5\xF1\xEE\xE2\xEF\xE0\xE4\xE5\xED\xE8\xE5 "
       "\xEA\xEE\xED\xF2\xF0\xEE\xEB\xFC\xED\xEE\xE9 \xF1\xF3\xEC\xEC\xFB"},
      {4,
       "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCD\xE5\xF2 \xEE\xF2\xE2\xE5\xF2\xE0 \xEE\xF2 "
       "\xF3\xF1\xF2\xF0\xEE\xE9\xF1\xF2\xE2\xE0"},
      {17,
       "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCA\xEE\xF0\xF0\xE5\xEA\xF6\xE8\xFF \xE2\xF0\xE5\xEC\xE5\xED\xE8 "
       "\xEF\xF0\xE8\xE1\xEE\xF0\xE0"},
      {18,
       "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCE\xF8\xE8\xE1\xEA\xE0 \xEA\xEE\xF0\xF0\xE5\xEA\xF6\xE8\xE8 "
       "\xE2\xF0\xE5\xEC\xE5\xED\xE8 \xEF\xF0\xE8\xE1\xEE\xF0\xE0"},
      {61249, "COM3 \xCE\xF8\xE8\xE1\xEA\xE0 \xEE\xF2\xEA\xF0\xFB\xF2\xE8\xFF COM-\xEF\xEE\xF0\xF2\xE0"},
      {61252, "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xC2\xEE\xF1\xF1\xF2\xE0\xED\xEE\xE2\xEB\xE5\xED\xE8\xE5 \xF1\xE2\xFF\xE7\xE8"},
      {61253,
       "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCE\xF8\xE8\xE1\xEA\xE0 \xE4\xEE\xF1\xF2\xF3\xEF\xE0 \xEA "
       "\xF3\xF0\xEE\xE2\xED\xFE 2"},
  };
  TestChannel channel;
  for (const Row& row : rows) ReportEvent(channel.Protocol(), row.code, 12);
  const std::vector<std::string> lines = channel.RawLogLines();
  ASSERT_EQ(std::size(rows), lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(rows[i].line, lines[i].substr(28)) << rows[i].code;
}

TEST(Events, OtherCodesWriteNothing) {
  TestChannel channel;
  for (const std::uint32_t code : {0U, 1U, 5U, 6U, 16U, 19U, 61241U, 61242U, 61250U, 61251U, 61254U, 0xFFFFFFFFU}) {
    ReportEvent(channel.Protocol(), code, 12);
  }
  EXPECT_THAT(channel.LogLines(), IsEmpty());
}

TEST(Events, MeterNumbersAreSigned) {
  TestChannel channel;
  ReportEvent(channel.Protocol(), kEventNoAnswer, 0xFFFFFFFF);
  EXPECT_THAT(channel.LogLines(), ElementsAre("COM3 ПРИБОР:-1 Нет ответа от устройства"));
}

TEST(Events, APortNameIsNoFormat) {
  TestChannel channel({.port = "%s%d%n"});
  ReportEvent(channel.Protocol(), kEventPortOpenFailed, 0);
  EXPECT_THAT(channel.LogLines(), ElementsAre("%s%d%n Ошибка открытия COM-порта"));
}

TEST(Events, NeedALog) {
  TestChannel channel;
  channel.Context().LogFile = nullptr;
  ReportEvent(channel.Protocol(), kEventNoAnswer, 12);
  EXPECT_THAT(channel.LogLines(), IsEmpty());
}

}  // namespace
}  // namespace ostrel::test
