// The exchange loop: what each kind of answer costs its six users in requests, time and messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

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

/// A channel with one meter, as in a running poll thread.
struct OneMeterChannel : SimulatedChannel {
  explicit OneMeterChannel(const LineOptions& options = {}) : SimulatedChannel(options) {
    Protocol().Running = 1;
    AddMeter(12, 1);
  }
  ~OneMeterChannel() { Protocol().Running = 0; }

  std::uint32_t Execute() { return ExecuteRequest(Protocol(), 0, request.data(), 6, answer.data(), 19); }

  const Bytes request = Frame("0C 05 00 00");
  Bytes answer = Bytes(300);
  std::uint8_t clock[kClockAnswer] = {};
};

struct Operation {
  const char* request;
  std::uint32_t (*run)(OneMeterChannel& channel);
};

std::uint32_t Write(OneMeterChannel& channel) {
  CDeviceTag& tag = *channel.AddTag(0, 99);
  tag.WriteValue.fltVal = 10;
  StoreFlag(tag.WritePending, 1);
  const std::uint32_t result = WriteTag(channel.Protocol(), tag, 0);
  EXPECT_EQ(0U, LoadFlag(tag.WritePending));
  return result;
}

constexpr Operation kOperations[] = {
    {"0C 05 00 00", [](auto& channel) { return channel.Execute(); }},
    {"0C 05 00 00", [](auto& channel) { return ReadTag(channel.Protocol(), channel.AddTag(0, 17), Send::Request, 0); }},
    {"0C 08 09", [](auto& channel) { return ReadTag(channel.Protocol(), channel.AddTag(0, 95), Send::Request, 0); }},
    {"0C 03 07 0A", Write},
    {"0C 04 00", [](auto& channel) { return ReadMeterClock(channel.Protocol(), 0, channel.clock); }},
    {"0C 03 0D 00 00 20",
     [](auto& channel) { return CorrectMeterClock(channel.Protocol(), 0, {.hours = 20, .minutes = 0, .seconds = 0}); }},
    {kOpen, [](auto& channel) { return OpenAccess(channel.Protocol(), 0); }},
};

char Letter(const std::string& message) {
  const std::pair<const char*, char> letters[] = {{"Нет ответа от устройства", 'N'},
                                                  {"Принят ошибочный пакет", 'P'},
                                                  {"Коррекция времени прибора", 'C'},
                                                  {"Ошибка коррекции времени прибора", 'E'}};
  for (const auto& [text, letter] : letters) {
    if (message == std::string("COM3 ПРИБОР:12 ") + text) return letter;
  }
  return '?';
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
  OneMeterChannel channel;
  channel.Line().Reply(operation.request, Replies(row[1]));
  if (std::string(operation.request) != kOpen) channel.Line().Reply(kOpen, Replies(row[2]));
  const std::uint32_t result = operation.run(channel);
  std::string text = (result == 1 ? "+" : "-") + std::to_string(channel.Line().RequestCount());
  text += " " + std::to_string(channel.Clock().Elapsed());
  for (const std::string& line : channel.LogLines()) text += std::string(" ") + Letter(line);
  const DeviceEntry& entry = channel.Entry(0);
  EXPECT_EQ(1U, entry.LinkUp + entry.LinkDown);
  const bool alwaysSucceeds = &operation == &kOperations[5];
  EXPECT_EQ(alwaysSucceeds ? entry.LinkUp : result, entry.LinkUp);
  return text;
}

TEST(Exchange, CostsWhatItsOperationAllows) {
  for (const TableRow& row : ReadTable("link/exchanges.tsv", 10)) {
    for (std::size_t i = 0; i < std::size(kOperations); ++i) {
      EXPECT_EQ(row[3 + i], Outcome(kOperations[i], row)) << row[0] << ", operation " << i;
    }
  }
}

TEST(Exchange, EndsWhenTheChannelClosesForEver) {
  OneMeterChannel channel;
  channel.Line().ReplyAlways("0C 05", "0C 05");
  EXPECT_EQ(0U, channel.Execute());
  EXPECT_EQ(2U * kMaxReopenings + 1, channel.Line().RequestCount());
  EXPECT_EQ(1U, channel.Entry(0).LinkDown);
}

TEST(Exchange, GathersOneByteAtATimeWithOneTry) {
  OneMeterChannel channel({.retries = 1});
  channel.Line().Reply("0C 05 00 00", {"0C|05|00|00|00|05|05|05|05|05|05|05|05|05|05|05|05"});  // no status in it
  EXPECT_EQ(1U, channel.Execute());
  EXPECT_EQ(1U, channel.Line().RequestCount());
  EXPECT_EQ(ToHex(Frame("0C 05 00 00 00 05 05 05 05 05 05 05 05 05 05 05 05")), ToHex(std::span(channel.answer).first(19)));
}

TEST(Exchange, NoiseFillsTheRoomAndNothingMoreIsAskedFor) {
  OneMeterChannel channel;
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
    OneMeterChannel channel;
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
  OneMeterChannel channel({.retries = 0});
  for (const int reading : {0, 1, 2, 4}) EXPECT_EQ(0U, kOperations[reading].run(channel)) << reading;
  EXPECT_EQ(0U, channel.Line().RequestCount());
  EXPECT_EQ(1U, channel.Entry(0).LinkDown);
  EXPECT_THAT(channel.LogLines(), testing::IsEmpty());
}

TEST(Exchange, TriesOnceWithoutAPollThreadAndKeepsToIt) {
  for (std::size_t i = 0; i < std::size(kOperations); ++i) {
    OneMeterChannel channel;
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
  OneMeterChannel channel({.preSendPauseMs = 30});
  channel.Line().Reply("0C 05 00 00", {"0C 01", "0C 00 00 0F A0 | 00 00 27 10 00 00 00 05 00 00 00 01"});
  EXPECT_EQ(1U, channel.Execute());
  EXPECT_EQ(30 + 5 + 30, channel.Clock().Elapsed());
}

TEST(Exchange, RejectsWhatIsNotThere) {
  OneMeterChannel channel;
  channel.Protocol().Running = 0;
  const Bytes& request = channel.request;
  for (const std::uint32_t device : {1U, 0xFFFFFFFFU}) {
    EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), device, request.data(), 6, channel.answer.data(), 19));
    EXPECT_EQ(0U, ReadTag(channel.Protocol(), channel.AddTag(0, 17), Send::Request, device));
    EXPECT_EQ(0U, WriteTag(channel.Protocol(), *channel.AddTag(0, 99), device));
    EXPECT_EQ(0U, ReadMeterClock(channel.Protocol(), device, channel.clock));
    EXPECT_EQ(1U, CorrectMeterClock(channel.Protocol(), device, {}));
    EXPECT_EQ(0U, OpenAccess(channel.Protocol(), device));
  }
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0, nullptr, 6, channel.answer.data(), 19));
  EXPECT_EQ(0U, ExecuteRequest(channel.Protocol(), 0, request.data(), 6, nullptr, 19));
  EXPECT_EQ(3, channel.Protocol().Channel.RetryCount);
  EXPECT_EQ(0U, channel.Line().RequestCount());
}

TEST(Exchange, SurvivesTheRemovalOfItsMeter) {
  for (const Operation& operation : kOperations) {
    OneMeterChannel channel;
    channel.AddMeter(13, 1);
    channel.Line().OnRequest([&channel](auto&) { channel.Protocol().RemoveDevice(1), channel.Protocol().RemoveDevice(0); });
    channel.Line().ReplyAlways("", "");
    operation.run(channel);
    EXPECT_EQ(1U, channel.Line().RequestCount());
    EXPECT_THAT(channel.LogLines(), testing::SizeIs(&operation >= &kOperations[5] ? 1 : 0));  // who had the address before
  }
}

/// The order at an exchange's end: link state, then the line's freedom, then the message.
TEST(Exchange, FreesTheLineBeforeItsMessage) {
  class Watched final : public CProtocol {
   public:
    std::uint32_t STDMETHODCALLTYPE UnlockExchange() override {
      if (channel != nullptr) seen = {Device(0)->LinkDown, channel->LogLines().size()};
      return CProtocol::UnlockExchange();
    }
    SimulatedChannel* channel = nullptr;
    std::pair<std::uint32_t, std::size_t> seen;  // link down, messages
  };
  auto* const watched = new Watched;
  OneMeterChannel channel({.protocol = watched});
  watched->channel = &channel;
  channel.Line().ReplyAlways("", "");
  EXPECT_EQ(0U, channel.Execute());
  EXPECT_EQ(std::pair(1U, std::size_t{0}), watched->seen);
  EXPECT_THAT(channel.LogLines(), testing::SizeIs(1));
}

// --- the access channel

TEST(OpenAccess, TriesLevel2First) {
  const struct {
    const char* name;
    std::vector<std::string> level2, level1;
    std::uint32_t result, keptLength, level2Open;
    const char* password2;  // that stays
    std::vector<std::string> log;
  } rows[] = {
      {"level 2 granted", {"0C 00"}, {}, 1, 4, 1, "222222", {}},
      {"level 2 refused", {"0C 02"}, {"0C 00"}, 1, 4, 0, "", {"COM3 ПРИБОР:12 Ошибка доступа к уровню 2"}},
      {"level 2 unanswered", {"", "", ""}, {"0C 00"}, 1, 4, 0, "", {"COM3 ПРИБОР:12 Ошибка доступа к уровню 2"}},
      {"both refused", {"0C 02"}, {"0C 02"}, 0, 4, 0, "222222", {}},
      {"both silent: level 1 speaks for both",
       {"", "", ""},
       {"", "", ""},
       0,
       0,
       0,
       "222222",
       {"COM3 ПРИБОР:12 Нет ответа от устройства"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    SimulatedChannel channel;
    channel.Protocol().Running = 1;
    channel.AddMeter(12, 1, {.level1Password = "111111", .level2Password = "222222"});
    channel.Line().Reply("0C 01 32 32 32 32 32 32", row.level2);
    channel.Line().Reply("0C 01 31 31 31 31 31 31", row.level1);
    EXPECT_EQ(row.result, OpenAccess(channel.Protocol(), 0));
    EXPECT_EQ(row.level2.size() + row.level1.size(), channel.Line().RequestCount());
    const DeviceEntry& entry = channel.Entry(0);
    EXPECT_EQ(row.keptLength, channel.Protocol().AnswerLength);
    EXPECT_EQ(row.level2Open, entry.Level2Open);
    EXPECT_EQ(std::string(row.password2) + std::string(6 - std::strlen(row.password2), '\0'),
              std::string(entry.Level2Password, 6));
    EXPECT_EQ(row.result, entry.LinkUp);
    EXPECT_EQ(row.log, channel.LogLines());
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
