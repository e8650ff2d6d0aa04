// Link flags with the failure hold, and the messages for the operator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/link/LinkState.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(LinkState, TheHoldStartsWithTheFirstFailureOnly) {
  SimulatedChannel channel({.startTick = 0xFFFFFF00});  // the count wraps within the hold
  channel.AddMeter(12, 1, {.failHoldMs = 1000});
  DeviceEntry& entry = channel.Entry(0);
  const auto update = [&](bool success) {
    UpdateLinkState(channel.Protocol(), 0, success);
    EXPECT_EQ(success ? 1U : 0U, entry.LinkUp);
    EXPECT_EQ(success ? 0U : 1U, entry.LinkDown);
  };
  update(false);
  EXPECT_EQ(0xFFFFFF00U, entry.FailHoldTimer.start);
  channel.Clock().Advance(600);
  update(false);
  EXPECT_EQ(0xFFFFFF00U, entry.FailHoldTimer.start);
  EXPECT_EQ(0U, channel.Protocol().CanPollDevice(0));
  update(true);
  EXPECT_EQ(0U, entry.FailHold);
  EXPECT_EQ(1U, channel.Protocol().CanPollDevice(0));
  update(false);
  EXPECT_EQ(0xFFFFFF00U + 600U, entry.FailHoldTimer.start);
  EXPECT_EQ(1000U, entry.FailHoldTimer.period);
  UpdateLinkState(channel.Protocol(), 1, false);  // no such meter
}

TEST(Events, HaveTheseTextsInTheLogsCodePage) {
  SimulatedChannel channel;
  for (const std::uint32_t code : {2U, 3U, 4U, 17U, 18U, 61249U, 61252U, 61253U}) ReportEvent(channel.Protocol(), code, 12);
  EXPECT_THAT(channel.LogLines(),
              ElementsAre("COM3 ПРИБОР:12 Принят ошибочный пакет", "COM3 ПРИБОР:12 Несовпадение контрольной суммы",
                          "COM3 ПРИБОР:12 Нет ответа от устройства", "COM3 ПРИБОР:12 Коррекция времени прибора",
                          "COM3 ПРИБОР:12 Ошибка коррекции времени прибора", "COM3 Ошибка открытия COM-порта",
                          "COM3 ПРИБОР:12 Восстановление связи", "COM3 ПРИБОР:12 Ошибка доступа к уровню 2"));
  EXPECT_EQ(
      "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCD\xE5\xF2 \xEE\xF2\xE2\xE5\xF2\xE0 \xEE\xF2 \xF3\xF1\xF2\xF0\xEE\xE9\xF1\xF2\xE2\xE0",
      channel.RawLogLines().at(2).substr(28));
}

TEST(Events, OtherCodesWriteNothing) {
  SimulatedChannel channel;
  for (const std::uint32_t code : {0U, 1U, 5U, 6U, 16U, 19U, 61241U, 61242U, 61250U, 61251U, 61254U, 0xFFFFFFFFU}) {
    ReportEvent(channel.Protocol(), code, 12);
  }
  channel.Context().LogFile = nullptr;
  ReportEvent(channel.Protocol(), kEventNoAnswer, 12);
  EXPECT_THAT(channel.LogLines(), IsEmpty());
}

TEST(Events, MeterNumbersAreSignedAndAPortNameIsNoFormat) {
  SimulatedChannel channel({.port = "%s%d%n"});
  ReportEvent(channel.Protocol(), kEventNoAnswer, 0xFFFFFFFF);
  ReportEvent(channel.Protocol(), kEventPortOpenFailed, 0);
  EXPECT_THAT(channel.LogLines(), ElementsAre("%s%d%n ПРИБОР:-1 Нет ответа от устройства", "%s%d%n Ошибка открытия COM-порта"));
}

}  // namespace
}  // namespace ostrel::test
