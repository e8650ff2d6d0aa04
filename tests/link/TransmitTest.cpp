// One physical exchange: which calls the port gets, what is traced, and what a failing call leaves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

struct Sent {
  std::uint32_t result;
  std::uint32_t count;
};

Sent Transmit(TestChannel& channel, std::uint32_t wanted, std::uint32_t offset, std::uint8_t* answer) {
  const Bytes request = Frame("0C 05 00 00");
  std::uint32_t count = wanted;
  const std::uint32_t result = channel.Protocol().TransmitAndRecieve(request.data(), 6, answer, &count, offset);
  return {.result = result, .count = count};
}

TEST(Transmit, TracesCallsAndFrames) {
  TestChannel channel;
  channel.StartTrace("DBG_COMMON=2");
  channel.Line().Expect("0C 05 00 00").AnswerInRawPieces({"0C 00 AB", "CD"});
  std::uint8_t answer[4] = {};
  EXPECT_EQ(3U, Transmit(channel, 4, 0, answer).count);
  EXPECT_EQ(1U, Transmit(channel, 1, 3, answer).count);
  EXPECT_EQ(0U, Transmit(channel, 0, 4, answer).result);
  EXPECT_EQ("0C 00 AB CD", ToHex(answer));
  EXPECT_THAT(channel.TraceLines(),
              ElementsAre("CProtocol::TransmitAndRecieve", "Write<6> 0C 05 00 00 13 75", "Read<3> 0C 00 AB",
                          "CProtocol::TransmitAndRecieve", "Read<1> CD", "CProtocol::TransmitAndRecieve", "Read<0>"));
}

TEST(Transmit, TracesFramesAloneAtLevel1AndNothingByDefault) {
  TestChannel channel;
  channel.Line().Expect("0C 05 00 00").Silence().Times(2);
  std::uint8_t answer[4];
  channel.StartTrace("");
  Transmit(channel, 4, 0, answer);
  EXPECT_EQ(0U, channel.TraceLines().size());
  channel.StartTrace("DBG_COMMON=1");
  Transmit(channel, 4, 0, answer);
  EXPECT_EQ(2U, channel.TraceLines().size());
}

TEST(Transmit, AFailingCallEndsTheExchange) {
  struct Row {
    const char* name;
    void (*spoil)(ScriptedLine&);
    std::vector<std::string> calls;
    std::size_t traced;
  };
  const Row rows[] = {
      {"purge", [](ScriptedLine& line) { line.FailPurge(E_FAIL); }, {"Purge"}, 1},
      {"drain", [](ScriptedLine& line) { line.FailDrain(E_FAIL); }, {"Purge", "Drain"}, 1},
      {"write", [](ScriptedLine& line) { line.FailWrite(E_FAIL); }, {"Purge", "Drain", "Write 6"}, 1},
      {"read",
       [](ScriptedLine& line) { line.Expect("0C 05 00 00").Answer("0C 00").ReadFails(); },
       {"Purge", "Drain", "Write 6", "Read 4 -> failure", "GetState"},
       3},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    TestChannel channel;
    std::uint8_t answer[4];
    channel.Line().Expect("0C 05 00 00").Silence();
    Transmit(channel, 4, 0, answer);
    channel.Line().ClearRecords();
    channel.StartTrace();
    row.spoil(channel.Line());
    const Sent sent = Transmit(channel, 4, 0, answer);
    EXPECT_EQ(0U, sent.result);
    EXPECT_EQ(0U, sent.count);
    EXPECT_EQ(row.calls, channel.Line().Calls());
    EXPECT_EQ(row.traced, channel.TraceLines().size());
  }
}

TEST(Transmit, WorksWithoutATrace) {
  TestChannel channel;
  channel.Context().Trace = nullptr;
  channel.Line().Expect("0C 05 00 00").Answer("0C 00");
  std::uint8_t answer[4];
  EXPECT_EQ(1U, Transmit(channel, 4, 0, answer).result);
}

TEST(Transmit, StaleInputIsThrownAwayBeforeARequest) {
  TestChannel channel;
  std::uint8_t answer[4] = {};
  channel.Line().Expect("0C 05 00 00").AnswerInRawPieces({"0C 00", "11 22 33 44"});
  channel.Line().Expect("0C 05 00 00").Answer("0C 00");
  EXPECT_EQ(2U, Transmit(channel, 4, 0, answer).count);
  EXPECT_EQ(4U, Transmit(channel, 4, 0, answer).count);
  EXPECT_EQ(ToHex(Frame("0C 00")), ToHex(answer));
}

TEST(Transmit, NullsAreRejectedWithoutAWrite) {
  TestChannel channel;
  std::uint8_t bytes[4] = {};
  std::uint32_t count = 4;
  EXPECT_EQ(0U, channel.Protocol().TransmitAndRecieve(nullptr, 4, bytes, &count, 0));
  EXPECT_EQ(0U, channel.Protocol().TransmitAndRecieve(bytes, 4, nullptr, &count, 0));
  EXPECT_EQ(0U, channel.Protocol().TransmitAndRecieve(bytes, 4, bytes, nullptr, 0));
  EXPECT_EQ(4U, count);
  EXPECT_EQ(0U, channel.Line().Calls().size());
}

}  // namespace
}  // namespace ostrel::test
