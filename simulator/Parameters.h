// Parameters of a meter that are read by number, among them the instantaneous quantities.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/Meter.h"

namespace ostrel::sim {

/// Data of parameter `parameters[0]`, selected further by the bytes after it; nothing when there is none.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> ReadParameter(const MeterView& view,
                                                                     std::span<const std::uint8_t> parameters);

}  // namespace ostrel::sim
