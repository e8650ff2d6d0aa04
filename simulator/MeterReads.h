// Answers to the requests that read: registers, quantities, parameters, logs.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/Meter.h"

namespace ostrel::sim {

/// The data bytes of the answer, or nothing when the meter knows no such request.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> ReadData(const MeterView& view, std::uint8_t code,
                                                                std::span<const std::uint8_t> parameters);

}  // namespace ostrel::sim
