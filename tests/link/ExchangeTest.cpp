// The exchange loop: what each kind of answer costs in requests, time and messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "platform/thread.h"
#include "tests/link/LinkedChannel.h"

namespace ostrel::test {
namespace {

using ::testing::IsEmpty;

constexpr const char* kFives = "0C 05 00 00 00 05 05 05 05 05 05 05 05 05 05 05 05";  // a first value of 0x05000000
constexpr const char* kBadPacket = "COM3 ПРИБОР:12 Принят ошибочный пакет";

struct TransactionRow {
  const char* name;
  std::function<void(ScriptedLine&)> script;
  std::uint32_t result;
  std::int64_t elapsedMs;
  std::vector<std::string> log;
};

void ExpectTransaction(const TransactionRow& row, const MeterOptions& meter = {}) {
  SCOPED_TRACE(row.name);
  LinkedChannel channel(meter);
  row.script(channel.Line());
  EXPECT_EQ(row.result, channel.Execute());
  EXPECT_EQ(row.elapsedMs, channel.Clock().Elapsed());
  EXPECT_EQ(row.log, channel.LogLines());
  EXPECT_EQ(row.result, channel.Entry(0).LinkUp);
  EXPECT_EQ(1 - row.result, channel.Entry(0).LinkDown);
  if (row.result == 1) {
    EXPECT_EQ(WithCheck(Bytes(channel.answer.begin(), channel.answer.begin() + 17)),
              Bytes(channel.answer.begin(), channel.answer.begin() + 19));
  }
}

TEST(ExecuteRequest, GathersRepeatsAndGivesUp) {
  const TransactionRow rows[] = {
      {"at once", [](auto& line) { line.Expect(kRequest).Answer(kEnergies); }, 1, 0, {}},
      {"the last four bytes are no status",
       [](auto& line) {
         line.Expect(kRequest).AnswerInPieces({"0C 05 00 00 00 05 05 05 05 05 05 05 05 05 05", "05 05"});
       },
       1,
       0,
       {}},
      {"silent", [](auto& line) { line.Expect(kRequest).Silence().Times(3); }, 0, 1500, {kNoAnswer}},
      {"answers the last try",
       [](auto& line) {
         line.Expect(kRequest).Silence().Times(2);
         line.Expect(kRequest).Answer(kEnergies);
       },
       1,
       1000,
       {}},
      {"wrong check at full length: the rest is 0 bytes, no pause",
       [](auto& line) { line.Expect(kRequest).AnswerRaw(std::string(kEnergies) + "00 00").Times(3); },
       0,
       0,
       {kNoAnswer}},
      {"stops short", [](auto& line) { line.Expect(kRequest).AnswerRaw("0C 00 00 0F A0").Times(3); }, 0, 1500, {kNoAnswer}},
      {"status 1", [](auto& line) { line.Expect(kRequest).Answer("0C 01").Times(3); }, 0, 15, {kBadPacket}},
      {"busy is a wrong length here", [](auto& line) { line.Expect(kRequest).Answer("0C 06").Times(3); }, 0, 15, {kBadPacket}},
      {"shorter than expected", [](auto& line) { line.Expect(kRequest).Answer("0C 00 00 0F A0").Times(3); }, 0, 15, {kBadPacket}},
      {"refused", [](auto& line) { line.Expect(kRequest).Answer("0C 0F").Times(3); }, 0, 15, {kNoAnswer}},
      {"refused once",
       [](auto& line) {
         line.Expect(kRequest).Answer("0C 0F");
         line.Expect(kRequest).Answer(kEnergies);
       },
       1,
       5,
       {}},
      {"the last code counts",
       [](auto& line) {
         line.Expect(kRequest).Answer("0C 01").Times(2);
         line.Expect(kRequest).Silence();
       },
       0,
       510,
       {kNoAnswer}},
  };
  for (const TransactionRow& row : rows) ExpectTransaction(row);
}

TEST(ExecuteRequest, OpensTheChannelOnDemand) {
  const TransactionRow rows[] = {
      {"opened",
       [](auto& line) {
         line.Expect(kRequest).Answer("0C 05");
         line.Expect(kOpen).Answer("0C 00");
         line.Expect(kRequest).Answer(kEnergies);
       },
       1,
       0,
       {}},
      {"the status counts without its check",
       [](auto& line) {
         line.Expect(kRequest).AnswerRaw("0C 05 00 00");
         line.Expect(kOpen).Answer("0C 00");
         line.Expect(kRequest).Answer(kEnergies);
       },
       1,
       0,
       {}},
      {"a status in halves is only a wrong length",
       [](auto& line) {
         line.Expect(kRequest).AnswerInPieces({"0C 05", ""}).Times(3);
       },
       0,
       15,
       {kBadPacket}},
      {"not opened: no message, as nothing went wrong on the line",
       [](auto& line) {
         line.Expect(kRequest).Answer("0C 05");
         line.Expect(kOpen).Answer("0C 03");
       },
       0,
       0,
       {}},
      {"not opened after a silence: the silence is reported",
       [](auto& line) {
         line.Expect(kRequest).Silence();
         line.Expect(kRequest).Answer("0C 05");
         line.Expect(kOpen).Answer("0C 03");
       },
       0,
       500,
       {kNoAnswer}},
      {"the tries begin anew",
       [](auto& line) {
         line.Expect(kRequest).Silence().Times(2);
         line.Expect(kRequest).Answer("0C 05");
         line.Expect(kOpen).Answer("0C 00");
         line.Expect(kRequest).Silence().Times(2);
         line.Expect(kRequest).Answer(kEnergies);
       },
       1,
       2000,
       {}},
  };
  for (const TransactionRow& row : rows) {
    ExpectTransaction(row);
    ExpectTransaction(row, {.level2Password = "222222"});  // level 1 all the same
  }
}

TEST(ExecuteRequest, EndsWhenTheChannelClosesForEver) {
  LinkedChannel channel;
  channel.Line().OnRequest([](auto request) { return request[1] == 1 ? Frame("0C 00") : Frame("0C 05"); });
  EXPECT_EQ(0U, channel.Execute());
  EXPECT_EQ(2U * kMaxReopenings + 1, channel.Line().RequestCount());
  EXPECT_EQ(1U, channel.Entry(0).LinkDown);
}

TEST(ExecuteRequest, GathersOneByteAtATimeWithOneTry) {
  LinkedChannel channel;
  channel.Protocol().Channel.RetryCount = 1;
  channel.Line().CutAnswers(1);
  channel.Line().OnRequest([](auto) { return Frame(kFives); });
  EXPECT_EQ(1U, channel.Execute());
  EXPECT_EQ(1U, channel.Line().RequestCount());
  EXPECT_EQ(ToHex(Frame(kFives)), ToHex(std::span(channel.answer).first(19)));
}

// A byte for every read, each 250 ms after the other, for a minute; 300 characters are 344 ms at 9600 baud.
TEST(ExecuteRequest, StrayBytesHoldTheLineForSoLongAndNoLonger) {
  for (const bool stopped : {false, true}) {
    LinkedChannel channel;
    channel.Line().CutAnswers(1);
    channel.Line().OnRequest([](auto) { return Bytes(240, 0xFF); });
    channel.Line().PauseReads(250);
    channel.Protocol().Running = stopped ? 0 : 1;
    channel.Protocol().ThreadId = stopped ? platform::CurrentThreadId() : 0;
    EXPECT_EQ(0U, channel.Execute(300));
    const std::int64_t oneTry = 250 * 11;  // the first tick beyond 344 + 4 * 500 ms after the first piece
    EXPECT_EQ(stopped ? 250 : 3 * oneTry, channel.Clock().Elapsed());
    EXPECT_EQ(std::vector<std::string>{kNoAnswer}, channel.LogLines());
  }
}

TEST(ExecuteRequest, WithoutTriesSendsNothingAndSaysNothing) {
  LinkedChannel channel;
  channel.Protocol().Channel.RetryCount = 0;
  EXPECT_EQ(0U, channel.Execute());
  EXPECT_EQ(0U, channel.Line().RequestCount());
  EXPECT_EQ(1U, channel.Entry(0).LinkDown);
  EXPECT_THAT(channel.LogLines(), IsEmpty());
}

TEST(ExecuteRequest, TriesOnceWithoutPollThreadAndStaysSo) {
  LinkedChannel channel;
  channel.Protocol().Running = 0;
  channel.Line().Expect(kRequest).Silence().Times(2);
  EXPECT_EQ(0U, channel.Execute());
  EXPECT_EQ(1, channel.Protocol().Channel.RetryCount);
  channel.Protocol().Running = 1;
  EXPECT_EQ(0U, channel.Execute());
  channel.Configure({});
  EXPECT_EQ(3, channel.Protocol().Channel.RetryCount);
}

TEST(ExecuteRequest, PausesBeforeEachNewRequestOnly) {
  LinkedChannel channel;
  channel.Configure({.preSendPauseMs = 30});
  channel.Protocol().Running = 1;
  channel.Line().Expect(kRequest).Answer("0C 01");
  channel.Line().Expect(kRequest).AnswerInPieces({"0C 00 00 0F A0", "00 00 27 10 00 00 00 05 00 00 00 01"});
  EXPECT_EQ(1U, channel.Execute());
  EXPECT_EQ(30 + 5 + 30, channel.Clock().Elapsed());
}

TEST(ExecuteRequest, RejectsWhatIsNotThere) {
  LinkedChannel channel;
  channel.Protocol().Running = 0;
  const Bytes request = Frame(kRequest);
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 1, request.data(), 6, channel.answer.data(), 19));
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0xFFFFFFFF, request.data(), 6, channel.answer.data(), 19));
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0, nullptr, 6, channel.answer.data(), 19));
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0, request.data(), 6, nullptr, 19));
  EXPECT_EQ(3, channel.Protocol().Channel.RetryCount);
  EXPECT_EQ(0U, channel.Line().RequestCount());
}

TEST(ExecuteRequest, SurvivesTheRemovalOfItsMeter) {
  LinkedChannel channel;
  channel.Line().OnRequest([&channel](auto) {
    channel.Protocol().RemoveDevice(0);
    return Bytes();
  });
  EXPECT_EQ(0U, channel.Execute());
  EXPECT_EQ(1U, channel.Line().RequestCount());
  EXPECT_THAT(channel.LogLines(), IsEmpty());
}

}  // namespace
}  // namespace ostrel::test
