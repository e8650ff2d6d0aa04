// What distinguishes the nine meter types: their variants, their phases, their tariffs and the tags they have.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace ostrel::sim {

struct MeterVariant {
  std::array<std::uint8_t, 3> bytes{};  // as the variant request answers them
  std::string_view name;                // UTF-8; empty for a variant nobody knows
  std::uint32_t powerScale = 0;         // powers travel divided by this
  std::uint32_t constant = 0;           // impulses per kWh; energies travel in half impulses
};

struct MeterType {
  std::uint32_t id = 0;
  std::array<std::uint8_t, 3> defaultVariant{};
  bool singlePhase = false;
  bool exports = false;            // counts A- as well
  int tariffs = 0;                 // 4 or 8 of the eight registers are in use
  bool keepsDays = false;          // an archive of days beside yesterday's
  bool keepsMonthYearAgo = false;  // beside the last twelve months, under code 13
  std::size_t profiles = 1;        // power profiles
  std::uint32_t profileCells = 0;  // memory of each, in records of eight bytes
};

/// The type, or null when there is none with this id.
[[nodiscard]] const MeterType* FindMeterType(std::uint32_t id);
[[nodiscard]] std::span<const MeterType> AllMeterTypes();

/// What three variant bytes stand for; name empty, scale and constant 0 when no variant has them.
[[nodiscard]] MeterVariant DescribeVariant(const std::array<std::uint8_t, 3>& bytes);

/// Variant bytes of this type with this constant, or nothing when it is not made with it.
[[nodiscard]] std::optional<std::array<std::uint8_t, 3>> VariantWithConstant(const MeterType& type, std::uint32_t constant);

/// True when a meter of this type has the current-data tag of this number (0..243).
[[nodiscard]] bool TypeHasTag(std::uint32_t type, std::uint32_t tagNumber);

}  // namespace ostrel::sim
