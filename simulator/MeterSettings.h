// What can be written to a meter and read back from it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "simulator/MeterSpec.h"

namespace ostrel::sim {

/// Limits by kind (A+, A-, R+, R-) and by tariff 1..4, or 0 for the sum.
using EnergyLimits = std::array<std::array<std::uint32_t, 5>, 4>;

struct MeterSettings {
  std::uint16_t ku = 1;
  std::uint16_t ki = 1;
  std::uint8_t indicationPeriodSeconds = 5;
  std::array<std::uint8_t, 3> profileMinutes{};  // period of each profile; 0 for one that the meter does not keep
  bool transitionInhibited = false;
  bool recoveryInhibited = false;
  std::uint8_t loadControl = 1;                // 1: the load is switched on
  std::uint8_t estimatedIntervalStart = 1;     // day of the month, 1..25
  EnergyLimits energyLimits{};                 // half impulses
  std::array<std::uint16_t, 4> powerLimits{};  // tenths; working day, Saturday, Sunday, holiday
};

/// Settings of a meter as delivered: every limit differs from every other.
[[nodiscard]] MeterSettings InitialSettings(const MeterSpec& spec);

/// A limit's selector byte (kind in the high nibble, tariff in the low one) as indices, or nothing when there is no such limit.
struct LimitIndex {
  std::size_t kind, tariff;
};
[[nodiscard]] std::optional<LimitIndex> LimitOfSelector(std::uint8_t selector);

}  // namespace ostrel::sim
