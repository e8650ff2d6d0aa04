// The exchange loop: what each kind of answer costs its six users in requests, time and messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "Protocol/acquisition/ClockCorrection.h"
#include "Protocol/acquisition/TagReader.h"
#include "Protocol/acquisition/TagWriter.h"
#include "Protocol/link/AccessChannel.h"
#include "Protocol/link/ExchangeEngine.h"
#include "platform/thread.h"
#include "tests/support/SimulatedChannel.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

constexpr const char* kOpen = "0C 01 30 30 30 30 30 30";

struct MeterOnLine : OneMeterChannel {
  explicit MeterOnLine(const LineOptions& options = {}, const DeviceOptions& meter = {}) : OneMeterChannel(options, meter, 12) {}

  std::uint32_t Execute(std::uint32_t at = 0) { return ExecuteRequest(Protocol(), at, request.data(), 6, answer.data(), 19); }

  const Bytes request = Frame("0C 05 00 00");
  Bytes answer = Bytes(300);
  std::uint8_t clock[kClockAnswer] = {};
};

struct Operation {
  const char* request;
  std::uint32_t (*run)(MeterOnLine& channel);
};

std::uint32_t Write(MeterOnLine& channel) {
  CDeviceTag& tag = *channel.Add(99);
  LeaveWrite(tag, 10);
  const std::uint32_t result = WriteTag(channel.Protocol(), tag, 0);
  EXPECT_EQ(0U, LoadFlag(tag.WritePending));
  return result;
}

constexpr Operation kOperations[] = {
    {"0C 05 00 00", [](auto& channel) { return channel.Execute(); }},
    {"0C 05 00 00", [](auto& channel) { return ReadTag(channel.Protocol(), channel.Add(17), Send::Request, 0); }},
    {"0C 08 09", [](auto& channel) { return ReadTag(channel.Protocol(), channel.Add(95), Send::Request, 0); }},
    {"0C 03 07 0A", Write},
    {"0C 04 00", [](auto& channel) { return ReadMeterClock(channel.Protocol(), 0, channel.clock); }},
    {"0C 03 0D 00 00 20",
     [](auto& channel) { return CorrectMeterClock(channel.Protocol(), 0, {.hours = 20, .minutes = 0, .seconds = 0}); }},
    {kOpen, [](auto& channel) { return OpenAccess(channel.Protocol(), 0); }},
};

/// " N C": a letter for each message.
std::string Letters(const SimulatedChannel& channel) {
  const std::map<std::string, std::string> letters = {{"Нет ответа от устройства", " N"},
                                                      {"Принят ошибочный пакет", " P"},
                                                      {"Коррекция времени прибора", " C"},
                                                      {"Ошибка коррекции времени прибора", " E"},
                                                      {"Ошибка доступа к уровню 2", " A"}};
  const std::string prefix = "COM3 ПРИБОР:12 ";
  std::string text;
  for (const std::string& line : channel.LogLines())
    text += letters.at(line.substr(line.starts_with(prefix) ? prefix.size() : 0));
  return text;
}

/// "0F" with the address, "-" as silence.
std::vector<std::string> Replies(const std::string& field) {
  std::vector<std::string> replies;
  for (const std::string& reply : Split(field, ',')) {
    const bool whole = reply == "*" || reply == "fail" || reply.starts_with('!');
    if (!reply.empty()) replies.push_back(reply == "-" ? "" : whole ? reply : "0C " + reply);
  }
  return replies;
}

std::string Outcome(const Operation& operation, const TableRow& row) {
  MeterOnLine channel;
  channel.Line().Reply(operation.request, Replies(row[1]));
  if (std::string(operation.request) != kOpen) channel.Line().Reply(kOpen, Replies(row[2]));
  const std::uint32_t result = operation.run(channel);
  EXPECT_EQ(1U, channel.Entry().LinkUp + channel.Entry().LinkDown);
  const bool alwaysSucceeds = &operation == &kOperations[5];
  EXPECT_EQ(alwaysSucceeds ? channel.Entry().LinkUp : result, channel.Entry().LinkUp);
  return (result == 1 ? "+" : "-") + std::to_string(channel.Line().RequestCount()) + " " +
         std::to_string(channel.Clock().Elapsed()) + Letters(channel);
}

TEST(Exchange, CostsWhatItsOperationAllows) {
  for (const TableRow& row : ReadTable("link/exchanges.tsv", 10)) {
    for (std::size_t i = 0; i < std::size(kOperations); ++i) {
      EXPECT_EQ(row[3 + i], Outcome(kOperations[i], row)) << row[0] << ", operation " << i;
    }
  }
}

TEST(Exchange, EndsWhenTheChannelClosesForEver) {
  MeterOnLine channel;
  channel.Line().ReplyAlways("0C 05", "0C 05");
  EXPECT_EQ(0U, channel.Execute());
  EXPECT_EQ(2U * kMaxReopenings + 1, channel.Line().RequestCount());
  EXPECT_EQ(1U, channel.Entry().LinkDown);
}

TEST(Exchange, GathersOneByteAtATimeWithOneTry) {
  MeterOnLine channel({.retries = 1});
  channel.Line().Reply("0C 05 00 00", {"0C|05|00|00|00|05|05|05|05|05|05|05|05|05|05|05|05"});  // no status in it
  EXPECT_EQ(1U, channel.Execute());
  EXPECT_EQ(1U, channel.Line().RequestCount());
  EXPECT_EQ(ToHex(Frame("0C 05 00 00 00 05 05 05 05 05 05 05 05 05 05 05 05")), ToHex(std::span(channel.answer).first(19)));
}

TEST(Exchange, NoiseFillsTheRoomAndNothingMoreIsAskedFor) {
  MeterOnLine channel;
  std::string noise = "!";
  for (int i = 0; i < 400; ++i) noise += "7E";
  channel.Line().ReplyAlways("0C", noise);
  EXPECT_EQ(0U, kOperations[1].run(channel));
  EXPECT_THAT(channel.Line().Calls(), testing::Contains("Read 0 -> 0").Times(3));
}

// A byte for every read, each 250 ms after the other, for a minute; 300 characters are 344 ms at 9600 baud.
TEST(Exchange, StrayBytesHoldTheLineForSoLongAndNoLonger) {
  std::string stray = "!FF";
  for (int i = 1; i < 240; ++i) stray += "|FF";
  for (const bool stopped : {false, true}) {
    MeterOnLine channel;
    channel.Line().ReplyAlways("", stray);
    channel.Line().PauseReads(250);
    channel.Protocol().Running = stopped ? 0 : 1;
    channel.Protocol().ThreadId = stopped ? platform::CurrentThreadId() : 0;
    EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0, channel.request.data(), 6, channel.answer.data(), 300));
    const std::int64_t oneTry = 250 * 11;  // the first tick beyond 344 + 4 * 500 ms after the first piece
    EXPECT_EQ(stopped ? 250 : 3 * oneTry, channel.Clock().Elapsed());
    EXPECT_THAT(channel.LogLines(), testing::ElementsAre("COM3 ПРИБОР:12 Нет ответа от устройства"));
  }
}

TEST(Exchange, WithoutTriesNothingIsSentOrSaid) {
  MeterOnLine channel({.retries = 0});
  for (const int reading : {0, 1, 2, 4}) EXPECT_EQ(0U, kOperations[reading].run(channel)) << reading;
  EXPECT_EQ(0U, channel.Line().RequestCount());
  EXPECT_EQ(1U, channel.Entry().LinkDown);
  EXPECT_THAT(channel.LogLines(), testing::IsEmpty());
}

TEST(Exchange, TriesOnceWithoutAPollThreadAndKeepsToIt) {
  for (std::size_t i = 0; i < std::size(kOperations); ++i) {
    MeterOnLine channel;
    channel.Protocol().Running = 0;
    channel.Line().ReplyAlways("", "");
    kOperations[i].run(channel);
    EXPECT_EQ(i == 5 ? 3U : 1U, channel.Line().RequestCount()) << i << ": only a correction keeps its tries";
    EXPECT_EQ(i == 5 ? 3 : 1, channel.Protocol().Channel.RetryCount) << i;
    channel.Configure({});
    EXPECT_EQ(3, channel.Protocol().Channel.RetryCount);
  }
}

TEST(Exchange, PausesBeforeEachNewRequestOnly) {
  MeterOnLine channel({.preSendPauseMs = 30});
  channel.Line().Reply("0C 05 00 00", {"0C 01", "0C 00 00 0F A0 | 00 00 27 10 00 00 00 05 00 00 00 01"});
  EXPECT_EQ(1U, channel.Execute());
  EXPECT_EQ(30 + 5 + 30, channel.Clock().Elapsed());
}

TEST(Exchange, RejectsWhatIsNotThere) {
  MeterOnLine channel;
  channel.Protocol().Running = 0;
  for (const std::uint32_t device : {1U, 0xFFFFFFFFU}) {
    EXPECT_EQ(0U, channel.Execute(device));
    EXPECT_EQ(0U, ReadTag(channel.Protocol(), channel.Add(17), Send::Request, device));
    EXPECT_EQ(0U, WriteTag(channel.Protocol(), *channel.Add(99), device));
    EXPECT_EQ(0U, ReadMeterClock(channel.Protocol(), device, channel.clock));
    EXPECT_EQ(1U, CorrectMeterClock(channel.Protocol(), device, {}));
    EXPECT_EQ(0U, OpenAccess(channel.Protocol(), device));
  }
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0, nullptr, 6, channel.answer.data(), 19));
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0, channel.request.data(), 6, nullptr, 19));
  EXPECT_EQ(3, channel.Protocol().Channel.RetryCount);
  EXPECT_EQ(0U, channel.Line().RequestCount());
}

TEST(Exchange, SurvivesTheRemovalOfItsMeter) {
  for (const Operation& operation : kOperations) {
    MeterOnLine channel;
    channel.AddMeter(13, 1);
    channel.Line().OnRequest([&channel](auto&) { channel.Protocol().RemoveDevice(1), channel.Protocol().RemoveDevice(0); });
    channel.Line().ReplyAlways("", "");
    operation.run(channel);
    EXPECT_EQ(1U, channel.Line().RequestCount());
    EXPECT_THAT(channel.LogLines(), testing::SizeIs(&operation >= &kOperations[5] ? 1 : 0));  // who had the address before
  }
}

// --- the access channel

TEST(OpenAccess, TriesLevel2First) {
  for (const TableRow& row : ReadTable("link/openings.tsv", 4)) {
    MeterOnLine channel({}, {.level1Password = "111111", .level2Password = "222222"});
    channel.Line().Reply("0C 01 32 32 32 32 32 32", Replies(row[1]));
    channel.Line().Reply("0C 01 31 31 31 31 31 31", Replies(row[2]));
    const std::uint32_t result = OpenAccess(channel.Protocol(), 0);
    const DeviceEntry& entry = channel.Entry();
    EXPECT_EQ(result, entry.LinkUp);
    const std::string password(entry.Level2Password, 6);
    std::string outcome;
    for (const std::uint32_t number : {result, std::uint32_t{channel.Protocol().AnswerLength}, std::uint32_t{entry.Level2Open}})
      outcome += std::to_string(number) + " ";
    outcome += (password == std::string(6, '\0') ? "-" : password) + " " + std::to_string(channel.Line().RequestCount());
    EXPECT_EQ(row[3], outcome + Letters(channel)) << row[0];
  }
}

TEST(OpenAccess, SendsSixBytesAsTheyLie) {
  SimulatedChannel channel;
  channel.AddMeter(0x1FF, 1, {.level1Password = "", .level2Password = std::string("ab\0cdefg", 8)});
  channel.Line().Reply("FF 01 61 62 00 63 64 65", {"FF 02"});
  channel.Line().Reply("FF 01 00 00 00 00 00 00", {"FF 00"});
  EXPECT_EQ(1U, OpenAccess(channel.Protocol(), 0));
}

}  // namespace
}  // namespace ostrel::test
