// Meters' clocks against the computer's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "Protocol/acquisition/ClockCorrection.h"
#include "tests/support/SimulatedChannel.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kNow = kEvening / 1000;
constexpr std::int64_t kUnchanged = 12345;

struct Answer {
  std::uint8_t bytes[kClockAnswer];
};

/// A clock's answer of its seven BCD bytes.
Answer AnswerOf(const std::string& clock) {
  Answer answer{};
  std::ranges::copy(Frame("01 " + clock + " 00"), answer.bytes);
  return answer;
}

struct Clocks : OneMeterChannel {
  Clocks() : OneMeterChannel({.clockCorrectionDays = 7}) {}

  /// "HH:MM:SS" to send, or "" for no correction.
  std::string Compare(const std::string& clock) {
    ClockSetting setting{};
    if (CompareClock(Protocol(), Entry(), AnswerOf(clock).bytes, setting) == 0) return "";
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", setting.hours, setting.minutes, setting.seconds);
    return text;
  }
};

TEST(ClockCorrection, MovesAClockByTwoMinutesAtMost) {
  for (const TableRow& row : ReadTable("acquisition/clocks.tsv", 6)) {
    SCOPED_TRACE(row[1] + " " + row[2]);
    const TimeZone zone(row[0]);
    if (!zone.Applies()) continue;
    Clocks meter;
    EXPECT_EQ(row[5] == "1", ShowsUnclearTime(AnswerOf(row[2]).bytes));
    if (row[1].empty()) continue;
    const std::int64_t now = UtcMs(row[1]);
    meter.Clock().SetUtcMilliseconds(now);
    meter.Entry().NextClockCheck = kUnchanged;
    EXPECT_EQ(row[3], meter.Compare(row[2]));
    EXPECT_EQ(row[4].empty() ? kUnchanged : now / 1000 + Numbers(row[4])[0] * kDay, +meter.Entry().NextClockCheck);  // packed
  }
}

TEST(ClockCorrection, IsDueByTimeOrByForce) {
  const struct {
    std::uint32_t days, force;
    std::int64_t next;
    bool due;
  } rows[] = {
      {7, 0, kNow + 1, false}, {7, 0, kNow, true}, {7, 0, kNow - 1, true}, {7, 0, 0, true},
      {7, 1, kNow + 1, true},  {0, 1, 0, false},   {0, 0, 0, false},       {1, 0, kNow, true},
  };
  const TimeZone zone("UTC");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  Clocks meter;
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.days) + " " + std::to_string(row.force) + " " + std::to_string(row.next - kNow));
    meter.Context().ClockCorrectionDays = row.days;
    meter.Entry().ForceClockCheck = row.force;
    meter.Entry().NextClockCheck = row.next;
    EXPECT_EQ(row.due ? "20:00:00" : "", meter.Compare("00 00 20 07 22 11 26"));
    EXPECT_EQ(row.due ? kNow + row.days * kDay : row.next, +meter.Entry().NextClockCheck);
    EXPECT_EQ(row.force, meter.Entry().ForceClockCheck);
  }
  meter.Protocol().HostContext = nullptr;
  EXPECT_EQ("", meter.Compare("00 00 20 07 22 11 26"));
  meter.Protocol().HostContext = &meter.Context();
}

TEST(ClockCorrection, ReadsInPiecesAndLeavesTheLastTagsAnswer) {
  Clocks meter;
  CProtocol& protocol = meter.Protocol();
  Answer answer{};
  protocol.AnswerLength = 77;
  meter.Line().Reply("01 04 00", {"01 00 00 | 12 07 22 11 26 01"});
  EXPECT_EQ(1U, ReadMeterClock(protocol, meter.device, answer.bytes));
  EXPECT_EQ(ToHex(Frame("01 00 00 12 07 22 11 26 01")), ToHex(answer.bytes));
  EXPECT_EQ(77U, protocol.AnswerLength);
  meter.Take();
  CorrectMeterClock(protocol, meter.device, {.hours = 23, .minutes = 7, .seconds = 59});
  EXPECT_THAT(meter.Take(), testing::ElementsAre("01 03 0D 59 07 23"));
}

}  // namespace
}  // namespace ostrel::test
