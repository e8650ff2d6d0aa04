// Instantaneous quantities by their selector byte, and the fixed facts of a meter's name plate.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "simulator/Model.h"

namespace ostrel::sim {

struct Quantity {
  std::uint32_t number = 0;  // 22 bits
  bool exporting = false;
  bool capacitive = false;
};

/// `selector`: the quantity in the high four bits, a variety of it in the next two, the phase in the last two.
[[nodiscard]] std::optional<Quantity> ReadQuantity(const Model& model, std::uint8_t selector, MeterTime now);

[[nodiscard]] CivilTime ReleaseDate(const Model& model);
[[nodiscard]] std::array<std::uint8_t, 3> ProgramVersion(const Model& model);
/// UTF-8, at most 16 characters.
[[nodiscard]] std::string LocationText(const MeterSpec& spec);

}  // namespace ostrel::sim
