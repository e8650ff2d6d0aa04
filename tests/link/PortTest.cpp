// Settings, and the port's opening and closing through the host's components.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Port.h"
#include "platform/text.h"
#include "tests/link/LinkedChannel.h"

namespace ostrel::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kOpenFailed = "COM3 Ошибка открытия COM-порта";

std::uint32_t Exchange(TestChannel& channel) {
  std::uint8_t answer[4];
  const Bytes request = Frame("0C 00");
  return ExecuteRequest(channel.Protocol(), 0, request.data(), 4, answer, 4);
}

TEST(Port, OpensWithTheSettings) {
  struct Row {
    std::uint32_t baud;
    const char* parity;
    const char* mode;
    const char* timeouts;
  };
  const Row rows[] = {
      {300, "Нет", "SetMode baud=300 data=8 parity=N stop=1", "SetTimeouts 700 300"},
      {600, "Чет", "SetMode baud=600 data=8 parity=E stop=1", "SetTimeouts 700 160"},
      {1200, "Маркер", "SetMode baud=1200 data=8 parity=M stop=1", "SetTimeouts 700 40"},
      {2400, "Пробел", "SetMode baud=2400 data=8 parity=S stop=1", "SetTimeouts 700 20"},
      {4800, "", "SetMode baud=4800 data=8 parity=NONE stop=1", "SetTimeouts 700 10"},
      {9600, "Нечет", "SetMode baud=9600 data=8 parity=O stop=1", "SetTimeouts 700 5"},
      {115200, "нет", "SetMode baud=115200 data=8 parity=NONE stop=1", "SetTimeouts 700 5"},
      {14400, "Нетто", "SetMode baud=14400 data=8 parity=NONE stop=1", "SetTimeouts 700 300"},
  };
  for (const Row& row : rows) {
    TestChannel channel({.port = "COM12", .baud = row.baud, .portTimeoutMs = 700, .parity = row.parity});
    EXPECT_EQ(1U, OpenPort(channel.Protocol()));
    EXPECT_EQ(1U, OpenPort(channel.Protocol())) << "an open port is left alone";
    EXPECT_THAT(channel.Line().Calls(), ElementsAre("CreatePortObject 10", "QueryIo", "Open \\\\.\\COM12", row.mode, row.timeouts,
                                                    "SetBuffers 2000 2000"));
    EXPECT_EQ(1U, channel.Protocol().PortOpen);
  }
}

TEST(Port, ClosesInOrderAndOnce) {
  TestChannel channel;
  OpenPort(channel.Protocol());
  channel.Line().ClearRecords();
  ClosePort(channel.Protocol());
  ClosePort(channel.Protocol());
  EXPECT_THAT(channel.Line().Calls(), ElementsAre("ReleaseIo", "ReleasePort", "ReleasePortObject 1"));
  EXPECT_EQ(0U, channel.Protocol().Channel.PortCookie);
}

TEST(Port, AFailedOpeningIsOneLineEachTimeAndLeaksNothing) {
  TestChannel channel;
  channel.Protocol().Running = 1;
  channel.AddMeter(12, 1);
  channel.Line().FailOpen(E_FAIL);
  EXPECT_EQ(0U, Exchange(channel));
  EXPECT_THAT(channel.LogLines(), ElementsAre(kOpenFailed, kOpenFailed, kOpenFailed, kNoAnswer));
  EXPECT_EQ(0, channel.Line().Unreleased());
  EXPECT_EQ(E_FAIL, channel.Protocol().LastPortResult);
  channel.Line().FailOpen(S_OK);
  channel.Line().Expect("0C 00").Answer("0C 00");
  EXPECT_EQ(1U, Exchange(channel));
}

TEST(Port, AMissingComponentIsNoAnswerWithoutALineOfItsOwn) {
  struct Row {
    const char* name;
    void (*spoil)(TestChannel&);
  };
  const Row rows[] = {
      {"no port object", [](TestChannel& channel) { channel.Line().OfferNoPort(true); }},
      {"no I/O interface", [](TestChannel& channel) { channel.Line().OfferNoIo(true); }},
      {"no provider", [](TestChannel& channel) { channel.Context().ObjectProvider = nullptr; }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    TestChannel channel;
    channel.Protocol().Running = 1;
    channel.AddMeter(12, 1);
    row.spoil(channel);
    EXPECT_EQ(1U, OpenPort(channel.Protocol()));
    EXPECT_EQ(0U, channel.Protocol().PortOpen);
    EXPECT_EQ(0U, Exchange(channel));
    EXPECT_THAT(channel.LogLines(), ElementsAre(kNoAnswer));
    EXPECT_EQ(0, channel.Line().Unreleased());
  }
}

TEST(Port, WithoutAContextNothingHappens) {
  TestChannel channel;
  const PortSettings settings = MakePortSettings({});
  EXPECT_EQ(1U, channel.Protocol().SetPortSettings(nullptr, &settings));
  channel.AddMeter(12, 1);
  EXPECT_EQ(0U, Exchange(channel));
}

TEST(Port, AFailedLineIsClosedAndOpenedAgain) {
  TestChannel channel;
  channel.Protocol().Running = 1;
  channel.AddMeter(12, 1);
  channel.Line().Expect("0C 00").Answer("0C 00").StateBecomes(kPortFailed);
  channel.Line().Expect("0C 00").Silence();
  EXPECT_EQ(1U, Exchange(channel)) << "the state matters only after silence";
  EXPECT_EQ(1U, channel.Protocol().PortOpen);
  channel.Line().Expect("0C 00").Silence().StateBecomes(3);
  channel.Line().Expect("0C 00").Answer("0C 00");
  channel.Line().ClearRecords();
  EXPECT_EQ(1U, Exchange(channel));
  EXPECT_THAT(channel.Line().Calls(),
              ElementsAre("Purge", "Drain", "Write 4", "Read 4 -> 0", "GetState", "ReleaseIo", "ReleasePort",
                          "ReleasePortObject 1", "CreatePortObject 10", "QueryIo", "Open \\\\.\\COM3",
                          "SetMode baud=9600 data=8 parity=N stop=1", "SetTimeouts 500 5", "SetBuffers 2000 2000", "Purge",
                          "Drain", "Write 4", "Read 4 -> 0", "GetState", "Purge", "Drain", "Write 4", "Read 4 -> 4"));
}

TEST(PortSettings, AreKeptAsGiven) {
  TestChannel channel({.port = "COM7",
                       .baud = 2400,
                       .retries = 4,
                       .pollPeriodSeconds = 9,
                       .portTimeoutMs = 321,
                       .preSendPauseMs = 17,
                       .parity = "Чет",
                       .settingsText = "x=1"});
  const ChannelRecord& kept = *channel.Protocol().GetChannel();
  EXPECT_STREQ("COM7", kept.PortName);
  EXPECT_EQ(2400U, kept.BaudRate);
  EXPECT_EQ(4, kept.RetryCount);
  EXPECT_EQ(9U, kept.PollPeriod);
  EXPECT_EQ(321U, kept.PortTimeout);
  EXPECT_EQ(17U, kept.PreSendPause);
  EXPECT_STREQ("E", kept.ParityCode);
  EXPECT_STREQ("x=1", kept.SettingsText);
  EXPECT_EQ(1U, kept.ExchangeEnabled);
  EXPECT_EQ(20U, channel.Protocol().PauseAfterError);
}

TEST(PortSettings, TextsWithoutAnEndAreCut) {
  TestChannel channel;
  const std::unique_ptr<unsigned char[]> promised(new unsigned char[142]);  // exactly what the host owes; no byte more
  std::memset(promised.get(), 'x', 142);
  const auto* const settings = reinterpret_cast<const PortSettings*>(promised.get());
  EXPECT_EQ(1U, channel.Protocol().SetPortSettings(&channel.Context(), settings));
  const ChannelRecord& kept = *channel.Protocol().GetChannel();
  EXPECT_EQ(std::string(9, 'x'), kept.PortName);
  EXPECT_STREQ("NONE", kept.ParityCode);
  EXPECT_EQ(std::string(99, 'x'), kept.SettingsText);
}

TEST(PortSettings, NewOnesCloseThePortWithTheOldContext) {
  TestChannel channel;
  channel.AddMeter(12, 1);
  channel.Line().Expect("0C 00").Answer("0C 00").Times(2);
  EXPECT_EQ(1U, Exchange(channel));
  channel.Protocol().AnswerBuffer.fill(7);
  channel.Protocol().AnswerLength = 9;
  HostContext other;
  other.LogFile = &channel.Log();
  const PortSettings settings = MakePortSettings({});
  channel.Protocol().SetPortSettings(&other, &settings);
  EXPECT_EQ(0, channel.Line().Unreleased());
  EXPECT_EQ(0U, channel.Protocol().AnswerLength);
  EXPECT_EQ(0, channel.Protocol().AnswerBuffer[299]);
  channel.Configure({.baud = 1200});
  channel.Line().ClearRecords();
  EXPECT_EQ(1U, Exchange(channel));
  EXPECT_THAT(channel.Line().Calls(), Contains("SetMode baud=1200 data=8 parity=N stop=1"));
}

TEST(PortSettings, EndARunningPollThread) {
  TestChannel channel;
  channel.Protocol().Start();
  channel.Protocol().SignalStop();
  channel.Configure({});
  EXPECT_EQ(nullptr, channel.Protocol().PollThread);
  EXPECT_EQ(0U, channel.Protocol().Running.load());
}

TEST(PortSettings, NullChangesNothing) {
  TestChannel channel({.port = "COM9"});
  EXPECT_EQ(0U, channel.Protocol().SetPortSettings(&channel.Context(), nullptr));
  EXPECT_STREQ("COM9", channel.Protocol().Channel.PortName);
}

}  // namespace
}  // namespace ostrel::test
