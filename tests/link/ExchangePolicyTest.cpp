// What the operations that exchange with a meter do differently.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/link/Frame.h"
#include "tests/link/LinkedChannel.h"

namespace ostrel::test {
namespace {

ExchangePolicy ReadPolicy(CProtocol& protocol) {
  return {.room = 300,
          .expectedLength = 0,
          .lowersRetryCountWhenStopped = true,
          .onClosedChannel = OnClosedChannel::OpenAccess,
          .onBusy = OnBusy::RetryAfterCheck,
          .pauseAfterRejectedMs = 5,
          .keptLength = &protocol.AnswerLength};
}

ExchangePolicy WritePolicy() {
  return {.room = 4,
          .expectedLength = 0,
          .lowersRetryCountWhenStopped = true,
          .onClosedChannel = OnClosedChannel::OpenAccess,
          .onBusy = OnBusy::RetryBeforeCheck,
          .pauseAfterRejectedMs = 5,
          .keptLength = nullptr};
}

TEST(ExchangePolicies, ReadingRepeatsWhileBusyAndKeepsTheLength) {
  LinkedChannel channel;
  channel.Line().Expect(kRequest).Answer("0C 06").Times(2);
  channel.Line().Expect(kRequest).AnswerInPieces({"0C 00 00 0F A0", "00 00 27 10"});
  const ExchangeOutcome outcome = channel.Run(ReadPolicy(channel.Protocol()));
  EXPECT_TRUE(outcome.valid);
  EXPECT_EQ(11U, outcome.received);
  EXPECT_EQ(11U, channel.Protocol().AnswerLength);
  EXPECT_EQ(0, channel.Clock().Elapsed());
}

TEST(ExchangePolicies, ReadingAMeterThatStaysBusyHasNoMessage) {
  LinkedChannel channel;
  channel.Line().Expect(kRequest).Silence();
  channel.Line().Expect(kRequest).Answer("0C 06").Times(2);
  const ExchangeOutcome outcome = channel.Run(ReadPolicy(channel.Protocol()));
  EXPECT_FALSE(outcome.valid);
  EXPECT_EQ(0, outcome.code);
  EXPECT_EQ(0U, channel.Protocol().AnswerLength);
}

TEST(ExchangePolicies, ReadingTakesALeadingFiveForData) {
  LinkedChannel channel;
  channel.Line().Expect(kRequest).AnswerInPieces({"0C 05 00 00 00 05 05 05 05 05 05 05 05 05 05", "05 05"});
  EXPECT_TRUE(channel.Run(ReadPolicy(channel.Protocol())).valid);
  EXPECT_EQ(19U, channel.Protocol().AnswerLength);
}

TEST(ExchangePolicies, ReadingCountsOnlyItsOwnBytesAfterAnOpening) {
  LinkedChannel channel({.level2Password = "222222"});
  channel.Line().Expect(kRequest).Answer("0C 05");
  channel.Line().Expect("0C 01 32 32 32 32 32 32").Answer("0C 00");
  channel.Line().Expect(kRequest).Answer("0C 00 01");
  EXPECT_TRUE(channel.Run(ReadPolicy(channel.Protocol())).valid);
  EXPECT_EQ(5U, channel.Protocol().AnswerLength);
}

TEST(ExchangePolicies, ReadingFillsItsRoomWithNoiseAndAsksForNothingMore) {
  LinkedChannel channel;
  channel.Line().OnRequest([](auto) { return Bytes(400, 0x7E); });
  const ExchangeOutcome outcome = channel.Run(ReadPolicy(channel.Protocol()));
  EXPECT_FALSE(outcome.valid);
  EXPECT_EQ(kAnswerRefused, outcome.code);
  EXPECT_EQ(3U, channel.Line().RequestCount());
  EXPECT_THAT(channel.Line().Calls(), ::testing::Contains("Read 0 -> 0").Times(3));
}

TEST(ExchangePolicies, WritingTakesBusyWithoutItsCheckAndKeepsTheCode) {
  LinkedChannel channel;
  channel.Line().Expect(kRequest).Silence();
  channel.Line().Expect(kRequest).AnswerRaw("0C 06 00 00").Times(2);
  const ExchangeOutcome outcome = channel.Run(WritePolicy());
  EXPECT_FALSE(outcome.valid);
  EXPECT_EQ(kAnswerRefused, outcome.code);
  EXPECT_EQ(500, channel.Clock().Elapsed());
}

TEST(ExchangePolicies, AnOpeningIsNotCountedAsATry) {
  LinkedChannel channel;
  channel.Protocol().Channel.RetryCount = 1;
  channel.Line().Expect(kRequest).Answer("0C 05");
  channel.Line().Expect(kOpen).Answer("0C 00");
  channel.Line().Expect(kRequest).Answer("0C 00");
  EXPECT_TRUE(channel.Run(WritePolicy()).valid);
}

TEST(ExchangePolicies, ClockCorrectionKeepsItsTriesAndItsOwnPause) {
  LinkedChannel channel;
  channel.Protocol().Running = 0;
  ExchangePolicy policy = WritePolicy();
  policy.lowersRetryCountWhenStopped = false;
  policy.onBusy = OnBusy::Validate;
  policy.pauseAfterRejectedMs = 200;
  channel.Line().Expect(kRequest).Answer("0C 0F").Times(2);
  channel.Line().Expect(kRequest).Answer("0C 06");
  EXPECT_TRUE(channel.Run(policy).valid);
  EXPECT_EQ(6, channel.answer[1]);
  EXPECT_EQ(400, channel.Clock().Elapsed());
  EXPECT_EQ(3, channel.Protocol().Channel.RetryCount);
}

}  // namespace
}  // namespace ostrel::test
