// What a reader must show for a meter: every current-data tag by its number, computed from the model and the settings,
// never from frames, so that answers and readers can both be checked against it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "simulator/Meter.h"

namespace ostrel::sim {

/// A number, before it is rounded to a float, or a text in UTF-8.
using Expected = std::variant<double, std::string>;

/// Nothing for tags that the meter's type does not have and for those that are not read from the meter (commands, the log
/// number, the exchange switch, reserved ones). `log` is the event log that the reader was told to ask for.
[[nodiscard]] std::optional<Expected> ExpectedTag(const MeterView& view, std::uint32_t tagNumber, std::uint8_t log = 1);

/// kWh or kvarh on the primary side.
[[nodiscard]] double EnergyValue(const MeterView& view, std::uint32_t pulses);

}  // namespace ostrel::sim
