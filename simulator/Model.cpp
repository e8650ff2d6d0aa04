#include "simulator/Model.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "simulator/Random.h"
#include "simulator/WallClock.h"

namespace ostrel::sim {
namespace {

constexpr double kDayLength = kDay;

/// Morning and evening peaks, a weak weekend, a strong winter, and what nobody can foresee. The shares stay below 1
/// together, so that power keeps its direction.
constexpr Wave kActiveWaves[] = {
    {kDayLength, 0.30, 17 * kHour},
    {kDayLength / 2, 0.12, 8 * kHour},
    {7 * kDayLength, 0.10, 2.5 * kDayLength},
    {365.25 * kDayLength, 0.12, 15 * kDayLength},
    {5.3 * kHour, 0.05},
    {2.7 * kHour, 0.04},
    {0.9 * kHour, 0.03},
    {660, 0.02},
};
constexpr Wave kReactiveWaves[] = {
    {kDayLength, 0.25, 13 * kHour},
    {7 * kDayLength, 0.08, 2.5 * kDayLength},
    {365.25 * kDayLength, 0.06, 190 * kDayLength},
    {4.1 * kHour, 0.06},
    {1.3 * kHour, 0.05},
    {540, 0.03},
};
constexpr Wave kVoltageWaves[] = {{kDayLength, 0.012, 4 * kHour}, {3.3 * kHour, 0.006}, {900, 0.003}};
constexpr Wave kFrequencyWaves[] = {{2.2 * kHour, 0.0006}, {1100, 0.0005}};
constexpr Wave kDistortionWaves[] = {{kDayLength, 0.20, 20 * kHour}, {1.7 * kHour, 0.10}};
/// Around a mean of 10 degrees: 14 more in July, 4 more in the afternoon.
constexpr Wave kTemperatureWaves[] = {{365.25 * kDayLength, 1.4, 200 * kDayLength}, {kDayLength, 0.4, 15 * kHour}};

struct RatingRow {
  std::uint32_t constant;
  double volts, amperes;
};
constexpr RatingRow kRatings[] = {{5000, 57.7, 5}, {25000, 57.7, 1}, {1250, 230, 5},
                                  {6250, 230, 1},  {500, 230, 50},   {250, 230, 50}};

constexpr double kActiveLoad = 0.35;  // of the rated power, on the average
constexpr double kReactiveLoad = 0.12;

std::vector<SmoothCurve> ThreeCurves(double mean, std::span<const Wave> waves, std::uint64_t seed) {
  std::vector<SmoothCurve> curves;
  for (std::uint64_t phase = 1; phase <= 3; ++phase) {
    Random random(MixSeeds(seed, phase));
    curves.emplace_back(mean * random.Between(0.985, 1.015), waves, random.Next());
  }
  return curves;
}

/// In order, overlapping ones as one, the time before the meter was put into service first.
std::vector<Period> OutagesOf(const MeterSpec& spec) {
  const WallClock wall(spec.summerTime);
  std::vector<Period> all{{std::numeric_limits<MeterTime>::min(), wall.TimeOf(spec.installed.value_or(kInstalled))}};
  for (const Period& cut : spec.powerCuts) all.push_back({wall.TimeOf(cut.from), wall.TimeOf(cut.to)});
  std::ranges::sort(all, {}, &Period::from);
  std::vector<Period> merged{all.front()};
  for (const Period& outage : all) {
    if (outage.from > merged.back().to) {
      merged.push_back(outage);
    } else {
      merged.back().to = std::max(merged.back().to, outage.to);
    }
  }
  return merged;
}

}  // namespace

MeterVariant Model::VariantOf(const MeterSpec& spec, const MeterType& type) {
  return DescribeVariant(spec.variant.value_or(type.defaultVariant));
}

Model::Ratings Model::RatingsOf(const MeterVariant& variant, const MeterType& type) {
  const auto* row = std::ranges::find(kRatings, variant.constant, &RatingRow::constant);
  if (row == std::end(kRatings)) row = kRatings;
  return {row->volts, row->amperes, row->volts * row->amperes * (type.singlePhase ? 1 : 3)};
}

Model::Model(const MeterSpec& spec, std::uint64_t seed)
    : type_(FindMeterType(spec.type) != nullptr ? *FindMeterType(spec.type) : AllMeterTypes()[0]),
      variant_(VariantOf(spec, type_)),
      seed_(MixSeeds(spec.seed.value_or(seed), spec.address)),
      serial_(spec.serial.value_or(10000000 + static_cast<std::uint32_t>(MixSeeds(seed_, 1) % 80000000))),
      ratings_(RatingsOf(variant_, type_)),
      shares_{0.33, 0.36, 0.31},
      active_(ratings_.watts * kActiveLoad, kActiveWaves, MixSeeds(seed_, 2)),
      reactive_(ratings_.watts * kReactiveLoad, kReactiveWaves, MixSeeds(seed_, 3)),
      voltages_(ThreeCurves(ratings_.volts, kVoltageWaves, MixSeeds(seed_, 4))),
      distortions_(ThreeCurves(2.4, kDistortionWaves, MixSeeds(seed_, 5))),
      frequency_(50, kFrequencyWaves, MixSeeds(seed_, 6)),
      temperature_(10, kTemperatureWaves, MixSeeds(seed_, 7)),
      energy_(type_, active_, reactive_, 2 * variant_.constant, OutagesOf(spec)) {
  if (type_.singlePhase) {
    shares_[0] = 1;
    shares_[1] = shares_[2] = 0;
  }
}

double Model::Power(PowerKind kind, int phase, MeterTime time) const {
  if (phase == 0) return Power(kind, 1, time) + Power(kind, 2, time) + Power(kind, 3, time);
  const DayPiece& piece = PieceAt(time);
  const double share = shares_[phase - 1];
  const double active = active_.At(time) * share;
  const double reactive = reactive_.At(time) * share;
  switch (kind) {
    case PowerKind::Active:
      return piece.exporting && type_.exports ? -active : active;
    case PowerKind::Reactive:
      return piece.capacitive ? -reactive : reactive;
    case PowerKind::Apparent:
      break;
  }
  return std::hypot(active, reactive);
}

double Model::PowerFactor(int phase, MeterTime time) const {
  const double apparent = Power(PowerKind::Apparent, phase, time);
  return apparent == 0 ? 0 : std::abs(Power(PowerKind::Active, phase, time)) / apparent;
}

double Model::Voltage(int phase, MeterTime time) const {
  return HasPhase(phase) ? voltages_[static_cast<std::size_t>(phase - 1)].At(time) : 0;
}

double Model::Current(int phase, MeterTime time) const {
  return HasPhase(phase) ? Power(PowerKind::Apparent, phase, time) / Voltage(phase, time) : 0;
}

double Model::InterphaseVoltage(int pair, MeterTime time) const {
  if (type_.singlePhase) return 0;
  const double first = Voltage(pair, time);
  const double second = Voltage(pair % 3 + 1, time);
  return std::sqrt(first * first + second * second + first * second);
}

double Model::PositiveSequenceVoltage(MeterTime time) const {
  if (type_.singlePhase) return Voltage(1, time);
  return (Voltage(1, time) + Voltage(2, time) + Voltage(3, time)) / 3;
}

double Model::Frequency(MeterTime time) const { return frequency_.At(time); }

double Model::Distortion(int phase, MeterTime time) const {
  return HasPhase(phase) ? distortions_[static_cast<std::size_t>(phase - 1)].At(time) : 0;
}

double Model::InterphaseDistortion(int pair, MeterTime time) const {
  return type_.singlePhase ? 0 : (Distortion(pair, time) + Distortion(pair % 3 + 1, time)) / 2;
}

int Model::Temperature(MeterTime time) const { return static_cast<int>(std::lround(temperature_.At(time))); }

std::int64_t Model::PowerRegister(PowerKind kind, int phase, MeterTime time) const {
  if (phase == 0) {
    return PowerRegister(kind, 1, time) + PowerRegister(kind, 2, time) + PowerRegister(kind, 3, time);
  }
  const double scale = variant_.powerScale == 0 ? 1 : variant_.powerScale;
  return std::llround(Power(kind, phase, time) * 1000 / scale);
}

int Model::TariffAt(MeterTime time) const { return TariffOf(PieceAt(time), time, type_.tariffs); }

bool Model::HasPower(MeterTime time) const {
  return std::ranges::none_of(energy_.Outages().subspan(1),
                              [time](const Period& outage) { return time >= outage.from && time < outage.to; });
}

}  // namespace ostrel::sim
