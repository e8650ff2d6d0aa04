// A smooth, seeded curve over meter time with an exact integral: a mean and a handful of waves around it. Powers and
// voltages follow such curves, and energies are their integrals, so that power and energy of a meter always agree.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "simulator/MeterCalendar.h"

namespace ostrel::sim {

struct Wave {
  double periodSeconds;
  double share;             // amplitude as a share of the mean
  double peakSeconds = -1;  // when in its period the wave is highest; negative: by the seed
};

class SmoothCurve {
 public:
  SmoothCurve(double mean, std::span<const Wave> waves, std::uint64_t seed);

  [[nodiscard]] double At(MeterTime time) const;
  /// The integral from kInstalled to `time`, in units of the curve times seconds; differences of two make any interval.
  [[nodiscard]] double IntegralTo(MeterTime time) const;

 private:
  struct Component {
    double rate;  // radians per second
    double amplitude;
    double phase;
  };

  double mean_;
  std::vector<Component> components_;
};

/// Curves begin at this moment, a Monday; a meter that names no other was put into service then.
inline constexpr MeterTime kInstalled = 1704067200;  // 2024-01-01 00:00:00

}  // namespace ostrel::sim
