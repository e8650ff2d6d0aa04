// Energy archives: which archive of the meter holds the value of a time, the request that reads it, and the energy in its
// answer.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "Protocol/meter/MeterParameters.h"
#include "platform/variant.h"

namespace ostrel {

/// Address, four energies of four bytes, check.
inline constexpr std::size_t kEnergyAnswer = 19;

/// What a read asks for.
struct EnergyQuestion {
  std::uint32_t historyClass;
  std::uint32_t meterType;
  std::uint8_t tariff;
  SYSTEMTIME asked;  // date of the record
  SYSTEMTIME clock;  // the meter's
};

enum class EnergySelection : std::uint8_t {
  Selected,
  NoArchive,  // the meter keeps no such archive: nothing is asked and nothing written
  Failed,     // the date is none: the value is bad
};

/// Bytes between address and check.
struct EnergyRequest {
  std::array<std::uint8_t, 6> bytes{};
  std::uint32_t length = 0;

  [[nodiscard]] std::span<const std::uint8_t> Bytes() const { return std::span(bytes).first(length); }
};

[[nodiscard]] EnergySelection BuildEnergyRequest(const EnergyQuestion& question, EnergyRequest& request);

/// The tag's energy, kWh or kvarh on the primary side. Nothing when the meter's constant is not known: a division by zero
/// would make an infinite value that looks good.
[[nodiscard]] std::optional<double> DecodeEnergy(std::span<const std::uint8_t, kEnergyAnswer> answer, std::uint32_t tagId,
                                                 std::uint32_t meterConstant, const TransformCoefficients& coefficients);

}  // namespace ostrel
