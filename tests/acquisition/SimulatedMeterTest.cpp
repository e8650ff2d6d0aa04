// The plug-in with a simulated meter in the same process, on the virtual clock: what a write leaves in the meter, and what
// weeks of clock keeping do to the meter's clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Protocol/model/TagCatalogue.h"
#include "platform/clock.h"
#include "platform/local_time.h"
#include "tests/acquisition/MeterInTurn.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

struct Simulated : MeterInTurn {
  explicit Simulated(const std::string& settings, const LineOptions& options = {})
      : MeterInTurn(options, {.simulated = settings}) {}

  std::int64_t NowMs() { return platform::UtcMilliseconds(); }
  sim::MeterView View() { return Line().Meter(1).View(NowMs()); }

  /// Seconds that the meter's clock is ahead of the computer's.
  std::int64_t Ahead() {
    const sim::CivilTime shown = sim::ToCivil(View().now);
    const auto local = platform::LocalFromSeconds(NowMs() / 1000);
    return sim::FromCivil(shown) -
           sim::FromCivil({local->year, local->month, local->day, local->hour, local->minute, local->second});
  }

  /// Clock corrections that went out since the last call.
  std::size_t Corrections() { return Take("01 03 0D").size(); }
};

TEST(SimulatedWrites, EveryParameterIsReadBack) {
  const struct {
    std::uint32_t first, last;
    float value;
    double shown;
  } rows[] = {
      {6, 6, 220, 220},         {7, 7, 65535, 65535}, {212, 212, 0, 0},         {212, 212, 1, 1},
      {213, 213, 0, 1},         {213, 213, 40, 25},   {213, 213, 24, 24},       {214, 218, 12.5, 12.5},
      {219, 222, 5000, 5000},   {219, 222, 0.05F, 1}, {219, 222, 7000, 6553.5}, {219, 222, 0.35F, 0.3},
      {223, 227, 10000, 10000}, {228, 232, 0, 0},     {233, 237, 77, 77},       {238, 242, 0.5, 0.5},
  };
  for (const auto& row : rows) {
    for (std::uint32_t number = row.first; number <= row.last; ++number) {
      SCOPED_TRACE("tag " + std::to_string(number) + " = " + std::to_string(row.value));
      Simulated simulated("");
      CDeviceTag& tag = *simulated.Add(number);
      ASSERT_EQ(1U, simulated.Cycle());
      LeaveWrite(tag, row.value);
      ASSERT_EQ(1U, simulated.Cycle());
      EXPECT_EQ(0U, LoadFlag(tag.WritePending));
      EXPECT_EQ(kQualityGood, tag.Quality);
      EXPECT_NEAR(row.shown, NumberOf(tag), row.shown * 1e-6);
      EXPECT_THAT(simulated.LogLines(), IsEmpty());
    }
  }
}

TEST(SimulatedWrites, CommandsTakeEffectInTheMeter) {
  Simulated simulated("offset_s=90");
  const auto command = [](Simulated& meter, std::uint32_t number, float value) {
    CDeviceTag& tag = *meter.Add(number);
    meter.Cycle();
    LeaveWrite(tag, value);
    meter.Cycle();
    EXPECT_EQ(0U, LoadFlag(tag.WritePending)) << number;
    EXPECT_EQ(0.0, NumberOf(tag)) << number;
    EXPECT_EQ(kQualityGood, tag.Quality) << number;
  };
  EXPECT_EQ(90, simulated.Ahead());
  command(simulated, kTagTimeCorrection, 1);
  EXPECT_EQ(0, simulated.Ahead());
  command(simulated, kTagIndicationPeriod, 17);
  EXPECT_EQ(17, simulated.View().settings.indicationPeriodSeconds);
  command(simulated, kTagTransitionInhibitCommand, 1);
  EXPECT_TRUE(simulated.View().settings.transitionInhibited);
  command(simulated, kTagIndicationRecoveryCommand, 1);
  EXPECT_TRUE(simulated.View().settings.recoveryInhibited);
  Simulated farOff("offset_s=-100000");
  command(farOff, kTagTimeSetup, 0);
  EXPECT_EQ(0, farOff.Ahead());
}

TEST(SimulatedWrites, WaitForAMeterThatIsAwayAndGoOutOnce) {
  Simulated simulated("", {.retries = 2});
  CDeviceTag& limit = *simulated.Add(219);
  CDeviceTag& coefficient = *simulated.Add(6);
  simulated.Silence();
  LeaveWrite(limit, 5);
  LeaveWrite(coefficient, 30);
  for (int pass = 0; pass < 3; ++pass) EXPECT_EQ(0U, simulated.Cycle());
  EXPECT_EQ(1U, LoadFlag(limit.WritePending) & LoadFlag(coefficient.WritePending));
  simulated.Silence(false);
  simulated.Line().ClearRecords();
  for (int pass = 0; pass < 4; ++pass) EXPECT_EQ(1U, simulated.Cycle());
  EXPECT_THAT(simulated.Take("01 03 "), ElementsAre("01 03 2F 08 00 00 00 00 32", "01 03 1B 00 1E"));
  EXPECT_EQ(5.0, NumberOf(limit));
  EXPECT_EQ(30.0, NumberOf(coefficient));
}

// --- clock keeping

struct Drill : Simulated {
  Drill(int offset, std::uint32_t days, const char* start)
      : Simulated("offset_s=" + std::to_string(offset), {.clockCorrectionDays = days, .startUtcMs = UtcMs(start)}) {
    Add(9);
  }

  /// On each full ten minutes: correction commands carry whole seconds, and polls at other fractions of a second would add to
  /// what the drill measures.
  void PollFor(int days) {
    for (const std::int64_t end = NowMs() + days * 24 * 6 * kStepMs; NowMs() < end;) {
      EXPECT_EQ(1U, Cycle());
      Clock().Advance(kStepMs - NowMs() % kStepMs);
    }
  }

  static constexpr std::int64_t kStepMs = 10LL * 60 * 1000;
};

constexpr const char* kCorrected = "COM3 ПРИБОР:1 Коррекция времени прибора";

// Ten minutes at two minutes a day: four steps leave two minutes, which the fifth takes; then a week of rest.
TEST(ClockDrill, TenMinutesTakeFiveDays) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const int sign : {1, -1}) {
    Drill drill(sign * 600, 7, "2026-06-01 09:00");
    for (const int left : {480, 360, 240, 120, 0}) {
      drill.PollFor(1);
      EXPECT_EQ(1U, drill.Corrections()) << left;
      EXPECT_NEAR(sign * left, drill.Ahead(), 2) << left;
    }
    drill.PollFor(6);
    EXPECT_EQ(0U, drill.Corrections());
    drill.PollFor(1);
    EXPECT_EQ(1U, drill.Corrections());
    EXPECT_EQ(std::vector<std::string>(6, kCorrected), drill.LogLines());
  }
}

/// A meter takes one correction a day. The second is refused, which is logged and changes nothing.
TEST(ClockDrill, ARefusedCorrectionIsReportedAndTheCycleGoesOn) {
  Drill drill(600, 7, "2026-06-01 09:00");
  drill.Cycle();
  drill.Entry().ForceClockCheck = 1;
  EXPECT_EQ(1U, drill.Cycle());
  EXPECT_EQ(0U, drill.Entry().ForceClockCheck);
  EXPECT_NEAR(480, drill.Ahead(), 2);
  EXPECT_EQ(1U, drill.Entry().LinkUp);
  EXPECT_THAT(drill.LogLines(), ElementsAre(kCorrected, "COM3 ПРИБОР:1 Ошибка коррекции времени прибора"));
}

// The meter follows the computer's wall clock. Checked every ten minutes around the change, forced to be due all the time.
TEST(ClockDrill, ChangesOfTheComputersTimeMakeNoStep) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const char* const start : {"2026-03-28 22:00", "2026-10-24 22:00"}) {
    for (const int offset : {0, 70, -70}) {
      Drill drill(offset, 1, start);
      for (int pass = 0; pass < 36; ++pass) {
        drill.Entry().NextClockCheck = 0;
        drill.Cycle();
        EXPECT_LE(std::abs(drill.Ahead()), 71) << "pass " << pass << " offset " << offset;
        drill.Clock().Advance(Drill::kStepMs);
      }
      EXPECT_THAT(drill.LogLines(), Contains(kCorrected));
    }
  }
}

}  // namespace
}  // namespace ostrel::test
