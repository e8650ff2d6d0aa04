// Opening the access channel: one row per outcome.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "Protocol/link/AccessChannel.h"
#include "tests/link/LinkedChannel.h"

namespace ostrel::test {
namespace {

constexpr const char* kLevel1 = "0C 01 31 31 31 31 31 31";
constexpr const char* kLevel2 = "0C 01 32 32 32 32 32 32";
constexpr const char* kLevel2Refused = "COM3 ПРИБОР:12 Ошибка доступа к уровню 2";

struct AccessRow {
  const char* name;
  const char* level2Password;
  std::function<void(ScriptedLine&)> script;
  std::uint32_t result;
  std::uint32_t keptLength;
  bool level2Open;
  bool passwordKept;
  std::vector<std::string> log;
};

const AccessRow kRows[] = {
    {.name = "level 1 only, granted",
     .level2Password = "",
     .script = [](auto& line) { line.Expect(kLevel1).Answer("0C 00"); },
     .result = 1,
     .keptLength = 4},
    {.name = "granted in pieces",
     .level2Password = "",
     .script =
         [](auto& line) {
           line.Expect(kLevel1).AnswerInPieces({"0C", "00"});
         },
     .result = 1,
     .keptLength = 4},
    {.name = "refused: not a word",
     .level2Password = "",
     .script = [](auto& line) { line.Expect(kLevel1).Answer("0C 03"); },
     .result = 0,
     .keptLength = 4},
    {.name = "closed and busy are refusals here",
     .level2Password = "",
     .script = [](auto& line) { line.Expect(kLevel1).Answer("0C 05"); },
     .result = 0,
     .keptLength = 4},
    {.name = "not supported: repeated, then no answer",
     .level2Password = "",
     .script = [](auto& line) { line.Expect(kLevel1).Answer("0C 0F").Times(3); },
     .result = 0,
     .keptLength = 0,
     .log = {kNoAnswer}},
    {.name = "silent",
     .level2Password = "",
     .script = [](auto& line) { line.Expect(kLevel1).Silence().Times(3); },
     .result = 0,
     .keptLength = 0,
     .log = {kNoAnswer}},
    {.name = "level 2 granted",
     .level2Password = "222222",
     .script = [](auto& line) { line.Expect(kLevel2).Answer("0C 00"); },
     .result = 1,
     .keptLength = 4,
     .level2Open = true,
     .passwordKept = true},
    {.name = "level 2 refused, level 1 granted",
     .level2Password = "222222",
     .script =
         [](auto& line) {
           line.Expect(kLevel2).Answer("0C 02");
           line.Expect(kLevel1).Answer("0C 00");
         },
     .result = 1,
     .keptLength = 4,
     .log = {kLevel2Refused}},
    {.name = "level 2 unanswered, level 1 granted",
     .level2Password = "222222",
     .script =
         [](auto& line) {
           line.Expect(kLevel2).Silence().Times(3);
           line.Expect(kLevel1).Answer("0C 00");
         },
     .result = 1,
     .keptLength = 4,
     .log = {kLevel2Refused}},
    {.name = "both refused",
     .level2Password = "222222",
     .script =
         [](auto& line) {
           line.Expect(kLevel2).Answer("0C 02");
           line.Expect(kLevel1).Answer("0C 02");
         },
     .result = 0,
     .keptLength = 4,
     .passwordKept = true},
    {.name = "both silent: level 1 speaks for both",
     .level2Password = "222222",
     .script =
         [](auto& line) {
           line.Expect(kLevel2).Silence().Times(3);
           line.Expect(kLevel1).Silence().Times(3);
         },
     .result = 0,
     .keptLength = 0,
     .passwordKept = true,
     .log = {kNoAnswer}},
};

TEST(OpenAccess, HasTheseOutcomes) {
  for (const AccessRow& row : kRows) {
    SCOPED_TRACE(row.name);
    TestChannel channel;
    channel.Protocol().Running = 1;
    channel.AddMeter(12, 1, {.level1Password = "111111", .level2Password = row.level2Password});
    row.script(channel.Line());
    EXPECT_EQ(row.result, OpenAccess(channel.Protocol(), 0));
    const DeviceEntry& entry = channel.Entry(0);
    EXPECT_EQ(row.keptLength, channel.Protocol().AnswerLength);
    EXPECT_EQ(row.level2Open ? 1U : 0U, entry.Level2Open);
    EXPECT_EQ(row.passwordKept ? "222222" : "", std::string(entry.Level2Password));
    EXPECT_EQ(row.result, entry.LinkUp);
    EXPECT_EQ(1 - row.result, entry.LinkDown);
    EXPECT_EQ(row.log, channel.LogLines());
  }
}

TEST(OpenAccess, ARefusedLevel2IsNotTriedAgain) {
  TestChannel channel;
  channel.AddMeter(12, 1, {.level1Password = "111111", .level2Password = "222222"});
  channel.Line().Expect(kLevel2).Answer("0C 02");
  channel.Line().Expect(kLevel1).Answer("0C 00").Times(2);
  EXPECT_EQ(1U, OpenAccess(channel.Protocol(), 0));
  EXPECT_EQ(1U, OpenAccess(channel.Protocol(), 0));
  for (const char byte : channel.Entry(0).Level2Password) EXPECT_EQ(0, byte);
}

TEST(OpenAccess, SendsSixBytesAsTheyLie) {
  TestChannel channel;
  channel.AddMeter(0x1FF, 1, {.level1Password = "", .level2Password = std::string("ab\0cdefg", 8)});
  channel.Line().Expect("FF 01 61 62 00 63 64 65").Answer("FF 02");
  channel.Line().Expect("FF 01 00 00 00 00 00 00").Answer("FF 00");
  EXPECT_EQ(1U, OpenAccess(channel.Protocol(), 0));
}

TEST(OpenAccess, NeedsAMeter) {
  TestChannel channel;
  EXPECT_EQ(0U, OpenAccess(channel.Protocol(), 0));
  EXPECT_EQ(0U, OpenChannel(channel.Protocol(), 0, AccessLevel::Level2));
}

}  // namespace
}  // namespace ostrel::test
