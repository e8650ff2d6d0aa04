// The plug-in with a simulated meter in the same process, on the virtual clock: what a write leaves in the meter, and what
// weeks of clock keeping do to the meter's clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

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

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kOneDay = 86400;

std::int64_t UtcMs(int year, unsigned month, unsigned day, int hour, int minute) {
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  return (std::chrono::seconds(date.time_since_epoch()).count() + hour * kHour + minute * kMinute) * 1000;
}

struct Simulated : MeterInTurn {
  explicit Simulated(const std::string& settings, const LineOptions& options = {})
      : MeterInTurn(options, {.simulated = settings}) {}

  std::int64_t NowMs() { return platform::UtcMilliseconds(); }
  sim::MeterView View() { return channel.Line().Meter(1).View(NowMs()); }

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
      EXPECT_THAT(simulated.channel.LogLines(), IsEmpty());
    }
  }
}

TEST(SimulatedWrites, CommandsTakeEffectInTheMeter) {
  Simulated simulated("offset_s=90");
  const auto command = [&](std::uint32_t number, float value) {
    CDeviceTag& tag = *simulated.Add(number);
    simulated.Cycle();
    LeaveWrite(tag, value);
    simulated.Cycle();
    EXPECT_EQ(0U, LoadFlag(tag.WritePending)) << number;
    EXPECT_EQ(0.0, NumberOf(tag)) << number;
    EXPECT_EQ(kQualityGood, tag.Quality) << number;
  };
  const auto settings = [&] { return simulated.View().settings; };
  EXPECT_EQ(90, simulated.Ahead());
  command(kTagTimeCorrection, 1);
  EXPECT_EQ(0, simulated.Ahead());
  command(kTagIndicationPeriod, 17);
  EXPECT_EQ(17, settings().indicationPeriodSeconds);
  command(kTagTransitionInhibitCommand, 1);
  EXPECT_TRUE(settings().transitionInhibited);
  command(kTagIndicationRecoveryCommand, 1);
  EXPECT_TRUE(settings().recoveryInhibited);

  Simulated farOff("offset_s=-100000");
  CDeviceTag& setup = *farOff.Add(kTagTimeSetup);
  farOff.Cycle();
  LeaveWrite(setup, 0);
  farOff.Cycle();
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
  simulated.channel.Line().ClearRecords();
  for (int pass = 0; pass < 4; ++pass) EXPECT_EQ(1U, simulated.Cycle());
  EXPECT_THAT(simulated.Take("01 03 "), ElementsAre("01 03 2F 08 00 00 00 00 32", "01 03 1B 00 1E"));
  EXPECT_EQ(5.0, NumberOf(limit));
  EXPECT_EQ(30.0, NumberOf(coefficient));
}

// --- clock keeping

/// Polls a meter for some days, on each full ten minutes: correction commands carry whole seconds, and polls at other
/// fractions of a second would add to what the drill measures.
void PollFor(Simulated& simulated, std::int64_t days) {
  constexpr std::int64_t kStepMs = 10 * kMinute * 1000;
  const std::int64_t end = simulated.NowMs() + days * kOneDay * 1000;
  while (simulated.NowMs() < end) {
    EXPECT_EQ(1U, simulated.Cycle());
    simulated.channel.Clock().Advance(kStepMs - simulated.NowMs() % kStepMs);
  }
}

Simulated* Drill(const std::string& text, std::uint32_t days, std::int64_t startMs) {
  auto* const simulated = new Simulated(text, {.clockCorrectionDays = days, .startUtcMs = startMs});
  simulated->Add(9);
  return simulated;
}

constexpr const char* kCorrected = "COM3 ПРИБОР:1 Коррекция времени прибора";
constexpr const char* kNotCorrected = "COM3 ПРИБОР:1 Ошибка коррекции времени прибора";

// Ten minutes at two minutes a day: four steps leave two minutes, which the fifth takes; then a week of rest.
TEST(ClockDrill, TenMinutesTakeFiveDays) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const int offset : {600, -600}) {
    const std::unique_ptr<Simulated> simulated(Drill("offset_s=" + std::to_string(offset), 7, UtcMs(2026, 6, 1, 9, 0)));
    const int sign = offset > 0 ? 1 : -1;
    for (const int left : {480, 360, 240, 120, 0}) {
      PollFor(*simulated, 1);
      EXPECT_EQ(1U, simulated->Corrections()) << left;
      EXPECT_NEAR(sign * left, simulated->Ahead(), 2) << left;
    }
    PollFor(*simulated, 6);
    EXPECT_EQ(0U, simulated->Corrections());
    PollFor(*simulated, 1);
    EXPECT_EQ(1U, simulated->Corrections());
    EXPECT_EQ(std::vector<std::string>(6, kCorrected), simulated->channel.LogLines());
  }
}

TEST(ClockDrill, ANearClockIsSetAtOnceAndThenLeftAlone) {
  const TimeZone zone("Europe/Berlin");
  const std::unique_ptr<Simulated> simulated(Drill("offset_s=119", 3, UtcMs(2026, 6, 1, 9, 0)));
  simulated->Cycle();
  EXPECT_EQ(1U, simulated->Corrections());
  EXPECT_NEAR(0, simulated->Ahead(), 1);
  PollFor(*simulated, 2);
  EXPECT_EQ(0U, simulated->Corrections());
  simulated->Entry().ForceClockCheck = 1;
  simulated->Cycle();
  EXPECT_EQ(1U, simulated->Corrections()) << "forced";
  EXPECT_EQ(0U, simulated->Entry().ForceClockCheck);
  PollFor(*simulated, 2);
  EXPECT_EQ(0U, simulated->Corrections());
}

/// A meter takes one correction a day. The second is refused, which is logged and changes nothing.
TEST(ClockDrill, ARefusedCorrectionIsReportedAndTheCycleGoesOn) {
  const std::unique_ptr<Simulated> simulated(Drill("offset_s=600", 7, UtcMs(2026, 6, 1, 9, 0)));
  simulated->Cycle();
  simulated->Entry().ForceClockCheck = 1;
  EXPECT_EQ(1U, simulated->Cycle());
  EXPECT_NEAR(480, simulated->Ahead(), 2);
  EXPECT_EQ(1U, simulated->Entry().LinkUp);
  EXPECT_THAT(simulated->channel.LogLines(), ElementsAre(kCorrected, kNotCorrected));
}

// The meter follows the computer's wall clock. Checked every ten minutes around the change, forced to be due all the time.
TEST(ClockDrill, ChangesOfTheComputersTimeMakeNoStep) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const std::int64_t start : {UtcMs(2026, 3, 28, 22, 0), UtcMs(2026, 10, 24, 22, 0)}) {
    for (const int offset : {0, 70, -70}) {
      const std::unique_ptr<Simulated> simulated(Drill("offset_s=" + std::to_string(offset), 1, start));
      for (int pass = 0; pass < 36; ++pass) {
        simulated->Entry().NextClockCheck = 0;
        simulated->Cycle();
        EXPECT_LE(std::abs(simulated->Ahead()), 71) << "pass " << pass << " offset " << offset;
        simulated->channel.Clock().Advance(10 * kMinute * 1000);
      }
      EXPECT_THAT(simulated->channel.LogLines(), Contains(kCorrected));
    }
  }
}

}  // namespace
}  // namespace ostrel::test
