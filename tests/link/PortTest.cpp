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

class Port : public ::testing::Test, protected OneMeterChannel {
 protected:
  using Result = std::pair<std::uint32_t, std::uint32_t>;

  Port() : OneMeterChannel({}, {}, 12) {}

  std::uint32_t Exchange() { return ExecuteRequest(Protocol(), 0, request.data(), 4, answer, 4); }
  /// The result of slot 22, with the count that it left.
  Result Transmit(std::uint32_t wanted, std::uint32_t offset = 0) {
    std::uint32_t count = wanted;
    const std::uint32_t result = Protocol().TransmitAndRecieve(request.data(), 4, answer, &count, offset);
    return {result, count};
  }

  const Bytes request = Frame("0C 00");
  SimulatedLine& line = Line();
  std::uint8_t answer[4] = {};
};

TEST_F(Port, OpensWithTheSettings) {
  const struct {
    std::uint32_t baud;
    const char *parity, *mode, *timeouts;
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
    Configure({.port = "COM12", .baud = row.baud, .portTimeoutMs = 700, .parity = row.parity});
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(1U, OpenPort(Protocol()));
    EXPECT_EQ(1U, Protocol().PortOpen);
    for (int twice = 0; twice < 2; ++twice) ClosePort(Protocol());
    EXPECT_THAT(line.Calls(),
                ElementsAre("CreatePortObject 10", "QueryIo", "Open \\\\.\\COM12", row.mode, row.timeouts, "SetBuffers 2000 2000",
                            "ReleaseIo", "ReleasePort", ::testing::StartsWith("ReleasePortObject ")));
    EXPECT_EQ(0U, Protocol().Channel.PortCookie);
  }
}

TEST_F(Port, AFailedOpeningIsOneLineEachTimeAndLeaksNothing) {
  line.Returns("Open", E_FAIL);
  EXPECT_EQ(0U, Exchange());
  EXPECT_THAT(LogLines(), ElementsAre(kOpenFailed, kOpenFailed, kOpenFailed, kNoAnswer));
  EXPECT_EQ(0, line.Unreleased());
  EXPECT_EQ(E_FAIL, Protocol().LastPortResult);
  line.Returns("Open", S_OK);
  EXPECT_EQ(1U, Exchange());
}

TEST_F(Port, AMissingComponentIsNoAnswerWithoutALineOfItsOwn) {
  for (const char* const missing : {"CreatePortObject", "QueryIo", ""}) {
    SCOPED_TRACE(missing);
    line.Returns(missing, E_FAIL);
    if (*missing == 0) Context().ObjectProvider = nullptr;
    EXPECT_EQ(1U, OpenPort(Protocol()));
    EXPECT_EQ(0U, Protocol().PortOpen);
    EXPECT_EQ(0U, Exchange());
    EXPECT_EQ(0, line.Unreleased());
    line.Returns(missing, S_OK);
  }
  EXPECT_THAT(LogLines(), ElementsAre(kNoAnswer, kNoAnswer, kNoAnswer));
  const PortSettings settings = MakePortSettings({});
  EXPECT_EQ(1U, Protocol().SetPortSettings(nullptr, &settings));
  EXPECT_EQ(0U, Exchange()) << "nor without a context";
}

TEST_F(Port, AFailedLineIsClosedAndOpenedAgain) {
  line.Returns("GetState", kPortFailed);
  EXPECT_EQ(1U, Exchange()) << "the state matters only after silence";
  EXPECT_EQ(1U, Protocol().PortOpen);
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
  LineOptions options{.port = "COM7", .retries = 4, .pollPeriodSeconds = 9, .portTimeoutMs = 321, .preSendPauseMs = 17};
  options.parity = "Чет";
  options.settingsText = "x=1";
  Configure(options);
  const ChannelRecord& kept = *Protocol().GetChannel();
  EXPECT_STREQ("COM7", kept.PortName);
  EXPECT_THAT((std::vector<std::uint32_t>{kept.RetryCount, kept.PollPeriod, kept.PortTimeout, kept.PreSendPause}),
              ElementsAre(4, 9, 321, 17));
  EXPECT_STREQ("E", kept.ParityCode);
  EXPECT_STREQ("x=1", kept.SettingsText);
  EXPECT_EQ(1U, kept.ExchangeEnabled);
  EXPECT_EQ(0U, Protocol().SetPortSettings(&Context(), nullptr));
  EXPECT_STREQ("COM7", kept.PortName) << "nothing given, nothing changed";
  const std::unique_ptr<unsigned char[]> promised(new unsigned char[142]);  // exactly what the host owes; no byte more
  std::memset(promised.get(), 'x', 142);
  EXPECT_EQ(1U, Protocol().SetPortSettings(&Context(), reinterpret_cast<const PortSettings*>(promised.get())));
  EXPECT_EQ(std::string(9, 'x'), kept.PortName);
  EXPECT_STREQ("NONE", kept.ParityCode);
  EXPECT_EQ(std::string(99, 'x'), kept.SettingsText);
}

TEST_F(Port, NewSettingsCloseThePortWithTheOldContextAndEndThePollThread) {
  EXPECT_EQ(1U, Exchange());
  Protocol().AnswerBuffer.fill(7);
  Protocol().AnswerLength = 9;
  HostContext other;
  const PortSettings settings = MakePortSettings({});
  Protocol().SetPortSettings(&other, &settings);
  EXPECT_EQ(0, line.Unreleased());
  EXPECT_EQ(0U, Protocol().AnswerLength);
  EXPECT_EQ(0, Protocol().AnswerBuffer[299]);
  Protocol().Start();
  Protocol().SignalStop();
  Configure({.baud = 1200});
  EXPECT_EQ(nullptr, Protocol().PollThread);
  EXPECT_EQ(0U, Protocol().Running.load());
  EXPECT_EQ(1U, Exchange());
  EXPECT_THAT(line.Calls(), Contains("SetMode baud=1200 data=8 parity=N stop=1"));
}

// --- slot 22

TEST_F(Port, TracesCallsAndFramesByLevel) {
  StartTrace("DBG_COMMON=2");
  line.Reply("0C 00", {"!0C 00 AB | CD", "", ""});
  EXPECT_EQ(Result(1, 3), Transmit(4));
  EXPECT_EQ(Result(1, 1), Transmit(1, 3));
  EXPECT_EQ(Result(0, 0), Transmit(0, 4));
  EXPECT_EQ("0C 00 AB CD", ToHex(answer));
  EXPECT_THAT(TraceLines(),
              ElementsAre("CProtocol::TransmitAndRecieve", "Write<4> 0C 00 04 B0", "Read<3> 0C 00 AB",
                          "CProtocol::TransmitAndRecieve", "Read<1> CD", "CProtocol::TransmitAndRecieve", "Read<0>"));
  for (const auto& [settings, lines] : {std::pair("", 7U), {"DBG_COMMON=1", 9U}}) {
    StartTrace(settings);
    Transmit(4);
    EXPECT_EQ(lines, TraceLines().size()) << settings;
  }
  Context().Trace = nullptr;
  EXPECT_EQ(Result(1, 4), Transmit(4));
}

TEST_F(Port, AFailingCallEndsTheExchange) {
  const std::vector<std::string> all = {"Purge", "Drain", "Write 4", "Read 4 -> failure", "GetState"};
  Transmit(4);
  StartTrace();
  std::size_t made = 0;
  for (const std::string call : {"Purge", "Drain", "Write", "fail"}) {
    SCOPED_TRACE(call);
    made += call == "fail" ? 2 : 1;
    line.ClearRecords();
    line.Returns(call, E_FAIL);
    if (call == "fail") line.Reply("0C 00", {call});
    const std::size_t traced = TraceLines().size();
    EXPECT_EQ(Result(0, 0), Transmit(4));
    EXPECT_EQ(std::vector(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(made)), line.Calls());
    EXPECT_EQ(call == "fail" ? 3U : 1U, TraceLines().size() - traced);
    line.Returns(call, S_OK);
  }
}

TEST_F(Port, StaleInputIsThrownAwayBeforeARequest) {
  std::string stale = "!0C 00 |";
  for (int i = 0; i < 300; ++i) stale += " 11";
  line.Reply("0C 00", {stale});
  EXPECT_EQ(2U, Transmit(4).second);
  EXPECT_EQ(4U, Transmit(4).second);
  EXPECT_EQ(ToHex(request), ToHex(answer));
}

TEST_F(Port, NullsAreRejectedWithoutAWrite) {
  std::uint32_t count = 4;
  EXPECT_EQ(0U, Protocol().TransmitAndRecieve(nullptr, 4, answer, &count, 0));
  EXPECT_EQ(0U, Protocol().TransmitAndRecieve(answer, 4, nullptr, &count, 0));
  EXPECT_EQ(0U, Protocol().TransmitAndRecieve(answer, 4, answer, nullptr, 0));
  EXPECT_EQ(4U, count);
  EXPECT_TRUE(line.Calls().empty());
}

}  // namespace
}  // namespace ostrel::test
