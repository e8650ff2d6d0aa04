#include <gtest/gtest.h>

#include <cmath>

#include "simulator/Model.h"
#include "tests/simulator/OneMeter.h"

namespace ostrel::test {
namespace {

using sim::Energies;
using sim::MeterTime;
using sim::Model;
using sim::PowerKind;

constexpr MeterTime kMorning = 1795341600;  // 2026-11-22 10:00:00

TEST(Model, PowersOfThePhasesMakeTheirSum) {
  for (const sim::MeterType& type : sim::AllMeterTypes()) {
    const Model model(Spec("1:" + std::to_string(type.id)), 7);
    for (const auto kind : {PowerKind::Active, PowerKind::Reactive, PowerKind::Apparent}) {
      std::int64_t phases = 0;
      for (int phase = 1; phase <= 3; ++phase) phases += model.PowerRegister(kind, phase, kMorning);
      EXPECT_EQ(model.PowerRegister(kind, 0, kMorning), phases) << type.id;
      EXPECT_NE(phases, 0);
      EXPECT_LT(std::abs(phases), 1 << 22) << type.id;
    }
  }
}

/// Registers against power summed second by second: half an hour around noon that exports for six minutes.
TEST(Model, EnergyIsTheIntegralOfPower) {
  for (const char* spec : {"1:1", "2:8:constant=6250", "3:12", "4:11:constant=250"}) {
    const Model model(Spec(spec), 3);
    const double pulsesPerWattSecond = 2.0 * model.Variant().constant / 3.6e6;
    double import = 0;
    double outflow = 0;
    double inductive = 0;
    constexpr MeterTime kFrom = kMorning + 3 * 3600;
    for (MeterTime time = kFrom; time < kFrom + 1800; ++time) {
      const double active = model.Power(PowerKind::Active, 0, time);
      (active < 0 ? outflow : import) += std::abs(active) * pulsesPerWattSecond;
      inductive += model.Power(PowerKind::Reactive, 0, time) * pulsesPerWattSecond;
    }
    const Energies counted = model.Energy().Between(0, kFrom, kFrom + 1800);
    const double slack = 3 + import * 0.001;
    EXPECT_NEAR(counted[0], import, slack) << spec;
    EXPECT_NEAR(counted[1], outflow, slack) << spec;
    EXPECT_NEAR(counted[2], inductive, slack) << spec;
    EXPECT_EQ(counted[3], 0U) << spec;
    EXPECT_EQ(outflow == 0, model.Type().singlePhase) << spec;
  }
}

}  // namespace
}  // namespace ostrel::test
