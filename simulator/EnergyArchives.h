// Energies that a meter keeps: its registers, what was counted in days, months and years, and what the registers showed when
// these began. An answer is the pulses of A+, A-, R+ and R-, four bytes each.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/Meter.h"

namespace ostrel::sim {

/// Array and tariff (1..8, 0 for their sum): registers, the running and the last year, month and day, and months by code.
/// Nothing when the meter has no such array; the same holds below.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> ReadEnergyArray(const MeterView& view,
                                                                       std::span<const std::uint8_t> parameters);

/// Archive, place in it, tariff, 0F for all four energies, 00.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> ReadEnergyArchive(const MeterView& view,
                                                                         std::span<const std::uint8_t> parameters);

}  // namespace ostrel::sim
