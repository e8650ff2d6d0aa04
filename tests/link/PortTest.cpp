// Settings, the port's opening and closing through the host's components, and one physical exchange: which calls the port
// gets, what is traced, and what a failing call leaves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Port.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

constexpr const char* kOpenFailed = "COM3 Ошибка открытия COM-порта";
constexpr const char* kNoAnswer = "COM3 ПРИБОР:12 Нет ответа от устройства";

class Port : public ::testing::Test {
 protected:
  Port() {
    channel.Protocol().Running = 1;
    channel.AddMeter(12, 1);
  }
  ~Port() override { channel.Protocol().Running = 0; }

  std::uint32_t Exchange() {
    const Bytes request = Frame("0C 00");
    return ExecuteRequest(channel.Protocol(), 0, request.data(), 4, answer, 4);
  }
  /// The result of slot 22, with the count that it left.
  std::pair<std::uint32_t, std::uint32_t> Transmit(std::uint32_t wanted, std::uint32_t offset = 0) {
    const Bytes request = Frame("0C 00");
    std::uint32_t count = wanted;
    const std::uint32_t result = channel.Protocol().TransmitAndRecieve(request.data(), 4, answer, &count, offset);
    return {result, count};
  }

  using Result = std::pair<std::uint32_t, std::uint32_t>;
  SimulatedChannel channel;
  SimulatedLine& line = channel.Line();
  std::uint8_t answer[4] = {};
};

TEST_F(Port, OpensWithTheSettings) {
  const struct {
    std::uint32_t baud;
    const char* parity;
    const char* mode;
    const char* timeouts;
  } rows[] = {
      {300, "Нет", "SetMode baud=300 data=8 parity=N stop=1", "SetTimeouts 700 300"},
      {600, "Чет", "SetMode baud=600 data=8 parity=E stop=1", "SetTimeouts 700 160"},
      {1200, "Маркер", "SetMode baud=1200 data=8 parity=M stop=1", "SetTimeouts 700 40"},
      {2400, "Пробел", "SetMode baud=2400 data=8 parity=S stop=1", "SetTimeouts 700 20"},
      {4800, "", "SetMode baud=4800 data=8 parity=NONE stop=1", "SetTimeouts 700 10"},
      {9600, "Нечет", "SetMode baud=9600 data=8 parity=O stop=1", "SetTimeouts 700 5"},
      {115200, "нет", "SetMode baud=115200 data=8 parity=NONE stop=1", "SetTimeouts 700 5"},
      {14400, "Нетто", "SetMode baud=14400 data=8 parity=NONE stop=1", "SetTimeouts 700 300"},
  };
  for (const auto& row : rows) {
    line.ClearRecords();
    channel.Configure({.port = "COM12", .baud = row.baud, .portTimeoutMs = 700, .parity = row.parity});
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(1U, OpenPort(channel.Protocol()));
    EXPECT_EQ(1U, channel.Protocol().PortOpen);
    for (int twice = 0; twice < 2; ++twice) ClosePort(channel.Protocol());
    EXPECT_THAT(line.Calls(),
                ElementsAre("CreatePortObject 10", "QueryIo", "Open \\\\.\\COM12", row.mode, row.timeouts, "SetBuffers 2000 2000",
                            "ReleaseIo", "ReleasePort", ::testing::StartsWith("ReleasePortObject ")));
    EXPECT_EQ(0U, channel.Protocol().Channel.PortCookie);
  }
}

TEST_F(Port, AFailedOpeningIsOneLineEachTimeAndLeaksNothing) {
  line.Returns("Open", E_FAIL);
  EXPECT_EQ(0U, Exchange());
  EXPECT_THAT(channel.LogLines(), ElementsAre(kOpenFailed, kOpenFailed, kOpenFailed, kNoAnswer));
  EXPECT_EQ(0, line.Unreleased());
  EXPECT_EQ(E_FAIL, channel.Protocol().LastPortResult);
  line.Returns("Open", S_OK);
  EXPECT_EQ(1U, Exchange());
}

TEST_F(Port, AMissingComponentIsNoAnswerWithoutALineOfItsOwn) {
  for (const char* const missing : {"CreatePortObject", "QueryIo", ""}) {
    SCOPED_TRACE(missing);
    line.Returns(missing, E_FAIL);
    if (*missing == 0) channel.Context().ObjectProvider = nullptr;
    EXPECT_EQ(1U, OpenPort(channel.Protocol()));
    EXPECT_EQ(0U, channel.Protocol().PortOpen);
    EXPECT_EQ(0U, Exchange());
    EXPECT_EQ(0, line.Unreleased());
    line.Returns(missing, S_OK);
  }
  EXPECT_THAT(channel.LogLines(), ElementsAre(kNoAnswer, kNoAnswer, kNoAnswer));
  const PortSettings settings = MakePortSettings({});
  EXPECT_EQ(1U, channel.Protocol().SetPortSettings(nullptr, &settings));
  EXPECT_EQ(0U, Exchange()) << "nor without a context";
}

TEST_F(Port, AFailedLineIsClosedAndOpenedAgain) {
  line.Returns("GetState", kPortFailed);
  EXPECT_EQ(1U, Exchange()) << "the state matters only after silence";
  EXPECT_EQ(1U, channel.Protocol().PortOpen);
  line.Reply("0C 00", {"", ""});
  line.OnRequest([this](auto&) { line.Returns("GetState", line.RequestCount() == 1 ? kPortFailed : 3); });
  line.ClearRecords();
  EXPECT_EQ(1U, Exchange());
  EXPECT_THAT(line.Calls(),
              ElementsAre("Purge", "Drain", "Write 4", "Read 4 -> 0", "GetState", "ReleaseIo", "ReleasePort",
                          "ReleasePortObject 1", "CreatePortObject 10", "QueryIo", "Open \\\\.\\COM3",
                          "SetMode baud=9600 data=8 parity=N stop=1", "SetTimeouts 500 5", "SetBuffers 2000 2000", "Purge",
                          "Drain", "Write 4", "Read 4 -> 0", "GetState", "Purge", "Drain", "Write 4", "Read 4 -> 4"));
}

// --- settings

TEST_F(Port, SettingsAreKeptAsGivenAndTextsWithoutAnEndCut) {
  channel.Configure({.port = "COM7",
                     .retries = 4,
                     .pollPeriodSeconds = 9,
                     .portTimeoutMs = 321,
                     .preSendPauseMs = 17,
                     .parity = "Чет",
                     .settingsText = "x=1"});
  const ChannelRecord& kept = *channel.Protocol().GetChannel();
  EXPECT_STREQ("COM7", kept.PortName);
  EXPECT_EQ(4, kept.RetryCount);
  EXPECT_EQ(9U, kept.PollPeriod);
  EXPECT_EQ(321U, kept.PortTimeout);
  EXPECT_EQ(17U, kept.PreSendPause);
  EXPECT_STREQ("E", kept.ParityCode);
  EXPECT_STREQ("x=1", kept.SettingsText);
  EXPECT_EQ(1U, kept.ExchangeEnabled);
  EXPECT_EQ(0U, channel.Protocol().SetPortSettings(&channel.Context(), nullptr));
  EXPECT_STREQ("COM7", kept.PortName) << "nothing given, nothing changed";
  const std::unique_ptr<unsigned char[]> promised(new unsigned char[142]);  // exactly what the host owes; no byte more
  std::memset(promised.get(), 'x', 142);
  EXPECT_EQ(1U, channel.Protocol().SetPortSettings(&channel.Context(), reinterpret_cast<const PortSettings*>(promised.get())));
  EXPECT_EQ(std::string(9, 'x'), kept.PortName);
  EXPECT_STREQ("NONE", kept.ParityCode);
  EXPECT_EQ(std::string(99, 'x'), kept.SettingsText);
}

TEST_F(Port, NewSettingsCloseThePortWithTheOldContextAndEndThePollThread) {
  EXPECT_EQ(1U, Exchange());
  channel.Protocol().AnswerBuffer.fill(7);
  channel.Protocol().AnswerLength = 9;
  HostContext other;
  const PortSettings settings = MakePortSettings({});
  channel.Protocol().SetPortSettings(&other, &settings);
  EXPECT_EQ(0, line.Unreleased());
  EXPECT_EQ(0U, channel.Protocol().AnswerLength);
  EXPECT_EQ(0, channel.Protocol().AnswerBuffer[299]);
  channel.Protocol().Start();
  channel.Protocol().SignalStop();
  channel.Configure({.baud = 1200});
  EXPECT_EQ(nullptr, channel.Protocol().PollThread);
  EXPECT_EQ(0U, channel.Protocol().Running.load());
  EXPECT_EQ(1U, Exchange());
  EXPECT_THAT(line.Calls(), Contains("SetMode baud=1200 data=8 parity=N stop=1"));
}

// --- slot 22

TEST_F(Port, TracesCallsAndFramesByLevel) {
  channel.StartTrace("DBG_COMMON=2");
  line.Reply("0C 00", {"!0C 00 AB | CD", "", ""});
  EXPECT_EQ(Result(1, 3), Transmit(4));
  EXPECT_EQ(Result(1, 1), Transmit(1, 3));
  EXPECT_EQ(Result(0, 0), Transmit(0, 4));
  EXPECT_EQ("0C 00 AB CD", ToHex(answer));
  EXPECT_THAT(channel.TraceLines(),
              ElementsAre("CProtocol::TransmitAndRecieve", "Write<4> 0C 00 04 B0", "Read<3> 0C 00 AB",
                          "CProtocol::TransmitAndRecieve", "Read<1> CD", "CProtocol::TransmitAndRecieve", "Read<0>"));
  for (const auto& [settings, lines] : {std::pair("", 7U), {"DBG_COMMON=1", 9U}}) {
    channel.StartTrace(settings);
    Transmit(4);
    EXPECT_EQ(lines, channel.TraceLines().size()) << settings;
  }
  channel.Context().Trace = nullptr;
  EXPECT_EQ(Result(1, 4), Transmit(4));
}

TEST_F(Port, AFailingCallEndsTheExchange) {
  const struct {
    const char* call;
    std::vector<std::string> calls;
    std::size_t traced;
  } rows[] = {
      {"Purge", {"Purge"}, 1},
      {"Drain", {"Purge", "Drain"}, 1},
      {"Write", {"Purge", "Drain", "Write 4"}, 1},
      {"fail", {"Purge", "Drain", "Write 4", "Read 4 -> failure", "GetState"}, 3},
  };
  Transmit(4);
  channel.StartTrace();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    line.ClearRecords();
    line.Returns(row.call, E_FAIL);
    if (row.traced == 3) line.Reply("0C 00", {row.call});
    const std::size_t traced = channel.TraceLines().size();
    EXPECT_EQ(Result(0, 0), Transmit(4));
    EXPECT_EQ(row.calls, line.Calls());
    EXPECT_EQ(row.traced, channel.TraceLines().size() - traced);
    line.Returns(row.call, S_OK);
  }
}

TEST_F(Port, StaleInputIsThrownAwayBeforeARequest) {
  line.Reply("0C 00", {"!0C 00 | 11 22 33 44"});
  EXPECT_EQ(2U, Transmit(4).second);
  EXPECT_EQ(4U, Transmit(4).second);
  EXPECT_EQ(ToHex(Frame("0C 00")), ToHex(answer));
}

TEST_F(Port, NullsAreRejectedWithoutAWrite) {
  std::uint32_t count = 4;
  EXPECT_EQ(0U, channel.Protocol().TransmitAndRecieve(nullptr, 4, answer, &count, 0));
  EXPECT_EQ(0U, channel.Protocol().TransmitAndRecieve(answer, 4, nullptr, &count, 0));
  EXPECT_EQ(0U, channel.Protocol().TransmitAndRecieve(answer, 4, answer, nullptr, 0));
  EXPECT_EQ(4U, count);
  EXPECT_TRUE(line.Calls().empty());
}

}  // namespace
}  // namespace ostrel::test
