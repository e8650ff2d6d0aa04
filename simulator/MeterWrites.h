// Commands that change a meter: coefficients, limits, flags, its clock.
#pragma once

#include <cstdint>
#include <span>

#include "simulator/Meter.h"

namespace ostrel::sim {

struct WriteContext {
  const MeterType& type;
  MeterSettings& settings;
  MeterClock& clock;
  std::int64_t utcMs;
};

/// Carries out a command: its parameter number, then its data. A value out of range changes nothing.
[[nodiscard]] Status WriteParameter(const WriteContext& context, std::span<const std::uint8_t> command);

}  // namespace ostrel::sim
