#include "simulator/SmoothCurve.h"

#include <cmath>
#include <numbers>

#include "simulator/Random.h"

namespace ostrel::sim {

SmoothCurve::SmoothCurve(double mean, std::span<const Wave> waves, std::uint64_t seed) : mean_(mean) {
  Random random(seed);
  for (const Wave& wave : waves) {
    const double rate = 2 * std::numbers::pi / wave.periodSeconds;
    const double seeded = random.Between(0, wave.periodSeconds);
    const double peak = wave.peakSeconds < 0 ? seeded : wave.peakSeconds;
    components_.push_back({.rate = rate, .amplitude = mean * wave.share, .phase = -rate * peak});
  }
}

double SmoothCurve::At(MeterTime time) const {
  const auto seconds = static_cast<double>(time - kInstalled);
  double value = mean_;
  for (const Component& part : components_) value += part.amplitude * std::cos(part.rate * seconds + part.phase);
  return value;
}

double SmoothCurve::IntegralTo(MeterTime time) const {
  const auto seconds = static_cast<double>(time - kInstalled);
  double value = mean_ * seconds;
  for (const Component& part : components_) {
    value += part.amplitude / part.rate * (std::sin(part.rate * seconds + part.phase) - std::sin(part.phase));
  }
  return value;
}

}  // namespace ostrel::sim
