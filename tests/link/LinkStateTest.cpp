// Link flags with the failure hold, and the messages for the operator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/link/LinkState.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

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
  const auto report = [&](std::initializer_list<std::uint32_t> codes) {
    for (const std::uint32_t code : codes) ReportEvent(channel.Protocol(), code, 12);
  };
  report({2, 3, 4, 17, 18, 61249, 61252, 61253});
  report({0, 1, 5, 6, 16, 19, 61241, 61242, 61250, 61251, 61254, 0xFFFFFFFF});  // have none
  channel.Context().LogFile = nullptr;
  report({kEventNoAnswer});
  EXPECT_THAT(channel.LogLines(),
              ElementsAre("COM3 ПРИБОР:12 Принят ошибочный пакет", "COM3 ПРИБОР:12 Несовпадение контрольной суммы",
                          "COM3 ПРИБОР:12 Нет ответа от устройства", "COM3 ПРИБОР:12 Коррекция времени прибора",
                          "COM3 ПРИБОР:12 Ошибка коррекции времени прибора", "COM3 Ошибка открытия COM-порта",
                          "COM3 ПРИБОР:12 Восстановление связи", "COM3 ПРИБОР:12 Ошибка доступа к уровню 2"));
  EXPECT_EQ(
      "COM3 \xCF\xD0\xC8\xC1\xCE\xD0:12 \xCD\xE5\xF2 \xEE\xF2\xE2\xE5\xF2\xE0 \xEE\xF2 \xF3\xF1\xF2\xF0\xEE\xE9\xF1\xF2\xE2\xE0",
      channel.RawLogLines().at(2).substr(28));
}

TEST(Events, MeterNumbersAreSignedAndAPortNameIsNoFormat) {
  SimulatedChannel channel({.port = "%s%d%n"});
  ReportEvent(channel.Protocol(), kEventNoAnswer, 0xFFFFFFFF);
  ReportEvent(channel.Protocol(), kEventPortOpenFailed, 0);
  EXPECT_THAT(channel.LogLines(), ElementsAre("%s%d%n ПРИБОР:-1 Нет ответа от устройства", "%s%d%n Ошибка открытия COM-порта"));
}

}  // namespace
}  // namespace ostrel::test
