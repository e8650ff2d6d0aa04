// Meters' clocks against the computer's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "Protocol/acquisition/ClockCorrection.h"
#include "tests/support/SimulatedChannel.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

constexpr std::int64_t kDay = 86400;

std::int64_t Utc(int year, unsigned month, unsigned day, int hour, int minute, int second) {
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  return std::chrono::seconds(date.time_since_epoch()).count() + hour * 3600 + minute * 60 + second;
}

const std::int64_t kNoon = Utc(2026, 11, 22, 12, 0, 0);

class ClockCorrectionTest : public testing::Test {
 protected:
  ClockCorrectionTest() {
    channel_.Protocol().Running = 1;
    channel_.Context().ClockCorrectionDays = 7;
    SetNow(kNoon);
  }
  ~ClockCorrectionTest() override { channel_.Protocol().Running = 0; }

  DeviceEntry& Entry() { return channel_.Entry(meter_); }
  void SetNow(std::int64_t seconds) { channel_.Clock().SetUtcMilliseconds(seconds * 1000); }
  std::int64_t NextCheck() { return Entry().NextClockCheck; }

  /// "HH:MM:SS" to send, or "" for no correction; the clock answer is given as seven BCD bytes.
  std::string Compare(const char* clock) {
    const Bytes frame = Frame(std::string("01 ") + clock + " 00");
    std::uint8_t answer[kClockAnswer] = {};
    EXPECT_EQ(std::size(answer), frame.size());
    std::copy(frame.begin(), frame.end(), answer);
    ClockSetting setting{};
    if (CompareClock(channel_.Protocol(), Entry(), answer, setting) == 0) return "";
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", setting.hours, setting.minutes, setting.seconds);
    return text;
  }

  const TimeZone zone_{"UTC"};
  SimulatedChannel channel_;
  const std::uint32_t meter_ = channel_.AddMeter(1, 1);
};

TEST_F(ClockCorrectionTest, MovesAClockByTwoMinutesAtMost) {
  const struct {
    const char* clock;
    std::int64_t now;
    const char* sent;
    std::int64_t rest;
  } rows[] = {
      {"00 00 12 07 22 11 26", kNoon, "12:00:00", 7 * kDay},
      {"01 58 11 07 22 11 26", kNoon, "12:00:00", 7 * kDay},  // 119 s behind
      {"00 58 11 07 22 11 26", kNoon, "12:00:00", 7 * kDay},  // 120 s
      {"59 57 11 07 22 11 26", kNoon, "11:59:59", kDay},      // 121 s
      {"59 01 12 07 22 11 26", kNoon, "12:00:00", 7 * kDay},  // 119 s ahead
      {"00 02 12 07 22 11 26", kNoon, "12:00:00", 7 * kDay},  // 120 s
      {"01 02 12 07 22 11 26", kNoon, "12:00:01", kDay},      // 121 s
      {"00 59 23 06 21 11 26", Utc(2026, 11, 22, 0, 3, 0), "00:01:00", kDay},
      {"00 01 00 07 22 11 26", Utc(2026, 11, 21, 23, 58, 0), "23:59:00", kDay},
      {"00 00 12 00 22 11 26", kNoon, "12:00:00", 7 * kDay},  // the weekday is not looked at
      {"00 00 0C 07 22 11 26", kNoon, "12:00:00", 7 * kDay},  // nibbles past 9 count as they are
      {"00 00 1A 07 22 11 26", kNoon, "19:58:00", kDay},
      {"00 00 12 07 31 02 26", Utc(2026, 3, 3, 12, 0, 0), "12:00:00", 7 * kDay},  // a day past the month's end runs over
      {"00 00 12 07 22 11 99", kNoon, "11:58:00", kDay},
  };
  for (const auto& row : rows) {
    SetNow(row.now);
    Entry().NextClockCheck = 0;
    EXPECT_EQ(row.sent, Compare(row.clock)) << row.clock;
    EXPECT_EQ(row.now + row.rest, NextCheck()) << row.clock;
  }
}

TEST_F(ClockCorrectionTest, IsDueByTimeOrByForce) {
  const struct {
    std::uint32_t days;
    std::uint32_t force;
    std::int64_t next;
    bool due;
  } rows[] = {
      {7, 0, kNoon + 1, false}, {7, 0, kNoon, true}, {7, 0, kNoon - 1, true}, {7, 0, 0, true},
      {7, 1, kNoon + 1, true},  {0, 1, 0, false},    {0, 0, 0, false},        {1, 0, kNoon, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.days) + " " + std::to_string(row.force) + " " + std::to_string(row.next - kNoon));
    channel_.Context().ClockCorrectionDays = row.days;
    Entry().ForceClockCheck = row.force;
    Entry().NextClockCheck = row.next;
    EXPECT_EQ(row.due ? "12:00:00" : "", Compare("00 00 12 07 22 11 26"));
    EXPECT_EQ(row.due ? kNoon + row.days * kDay : row.next, NextCheck());
    EXPECT_EQ(row.force, Entry().ForceClockCheck);
  }
  channel_.Protocol().HostContext = nullptr;
  EXPECT_EQ("", Compare("00 00 12 07 22 11 26"));
  channel_.Protocol().HostContext = &channel_.Context();
}

TEST_F(ClockCorrectionTest, AnImpossibleClockChangesNothing) {
  Entry().ForceClockCheck = 1;
  Entry().NextClockCheck = 12345;
  for (const char* clock : {"00 00 12 07 22 00 26", "00 00 12 07 22 13 26", "00 00 12 07 00 11 26", "00 00 12 07 32 11 26",
                            "00 00 24 07 22 11 26", "00 60 12 07 22 11 26", "60 00 12 07 22 11 26", "FF FF FF FF FF FF FF"}) {
    EXPECT_EQ("", Compare(clock)) << clock;
    EXPECT_EQ(12345, NextCheck()) << clock;
  }
}

// The meter keeps the computer's wall clock. Where an hour occurs twice the meter's is taken as standard time; only a forced
// check is made there.
TEST_F(ClockCorrectionTest, TheComputersChangeOfTimeIsNoDrift) {
  const TimeZone berlin("Europe/Berlin");
  if (!berlin.Applies()) GTEST_SKIP() << kInAnotherZone;
  const struct {
    std::int64_t now;
    const char* clock;
    const char* sent;
  } rows[] = {
      {Utc(2026, 3, 29, 0, 59, 50), "50 59 01 07 29 03 26", "01:59:50"},  // the last minute of winter
      {Utc(2026, 3, 29, 1, 0, 10), "10 00 03 07 29 03 26", "03:00:10"},   // the first of summer
      {Utc(2026, 3, 29, 1, 1, 0), "30 59 01 07 29 03 26", "03:01:00"},    // 90 s behind across the change
      {Utc(2026, 10, 25, 1, 30, 0), "00 30 02 07 25 10 26", "02:30:00"},  // the second 02:30
      {Utc(2026, 10, 25, 2, 0, 0), "00 00 03 07 25 10 26", "03:00:00"},
      {Utc(2026, 10, 25, 0, 30, 0), "00 30 02 07 25 10 26", "02:28:00"},  // the first 02:30
  };
  for (const auto& row : rows) {
    SetNow(row.now);
    Entry().NextClockCheck = 0;
    EXPECT_EQ(row.sent, Compare(row.clock)) << row.clock;
  }
}

TEST_F(ClockCorrectionTest, TimesThatTheZoneDoesNotHaveOnceAreUnclear) {
  const TimeZone berlin("Europe/Berlin");
  if (!berlin.Applies()) GTEST_SKIP() << kInAnotherZone;
  const std::pair<const char*, bool> rows[] = {
      {"59 59 01 07 29 03 26", false}, {"00 00 02 07 29 03 26", true},  {"00 30 02 07 29 03 26", true},
      {"00 00 03 07 29 03 26", false}, {"00 00 02 07 25 10 26", true},  {"59 59 02 07 25 10 26", true},
      {"00 00 03 07 25 10 26", false}, {"00 00 12 07 31 02 26", true},  {"00 00 00 05 01 01 26", false},
      {"59 59 23 04 31 12 26", false}, {"00 00 25 07 22 11 26", false},  // impossible, which the comparison itself refuses
  };
  for (const auto& [clock, unclear] : rows) {
    std::uint8_t answer[kClockAnswer] = {1};
    std::ranges::copy(Hex(clock), answer + 1);
    EXPECT_EQ(unclear, ShowsUnclearTime(answer)) << clock;
  }
}

TEST_F(ClockCorrectionTest, ReadsInPiecesAndLeavesTheLastTagsAnswer) {
  std::uint8_t answer[kClockAnswer] = {};
  channel_.Protocol().AnswerLength = 77;
  channel_.Line().Reply("01 04 00", {"01 00 00 | 12 07 22 11 26 01"});
  EXPECT_EQ(1U, ReadMeterClock(channel_.Protocol(), meter_, answer));
  EXPECT_EQ(Frame("01 00 00 12 07 22 11 26 01"), Bytes(std::begin(answer), std::end(answer)));
  EXPECT_EQ(77U, channel_.Protocol().AnswerLength);
  channel_.Line().ClearRecords();
  CorrectMeterClock(channel_.Protocol(), meter_, {.hours = 23, .minutes = 7, .seconds = 59});
  EXPECT_THAT(channel_.Line().RequestTexts(), testing::ElementsAre("01 03 0D 59 07 23"));
}

}  // namespace
}  // namespace ostrel::test
