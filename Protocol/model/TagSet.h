// Rows of the acquisition tables apply to runs of tag numbers; code finds the row of a tag here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Protocol/model/TagCatalogue.h"

namespace ostrel {

/// First and last tag number; empty when not given.
struct TagRun {
  std::uint32_t first = 1;
  std::uint32_t last = 0;

  [[nodiscard]] constexpr bool Has(std::uint32_t number) const { return number >= first && number <= last; }
};

/// As many runs as the most scattered family has: the powers of three phases and their sum.
struct TagSet {
  TagRun runs[4]{};

  [[nodiscard]] constexpr bool Has(std::uint32_t number) const {
    for (const TagRun& run : runs) {
      if (run.Has(number)) return true;
    }
    return false;
  }
};

/// For each tag number the place of its row, counted from 1; 0 where there is none.
template <class Row, std::size_t Count>
[[nodiscard]] consteval std::array<std::uint8_t, kDaTagCount> RowPlaces(const Row (&rows)[Count]) {
  static_assert(Count < 256);
  std::array<std::uint8_t, kDaTagCount> places{};
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    for (std::size_t row = Count; row > 0; --row) {
      if (rows[row - 1].tags.Has(number)) places[number] = static_cast<std::uint8_t>(row);
    }
  }
  return places;
}

template <const auto& kRows>
inline constexpr std::array<std::uint8_t, kDaTagCount> kRowPlaces = RowPlaces(kRows);

/// The tag's row of a table, or null.
template <const auto& kRows>
[[nodiscard]] constexpr auto FindRow(std::uint32_t number) -> decltype(&kRows[0]) {
  const std::uint32_t place = number < kDaTagCount ? kRowPlaces<kRows>[number] : 0;
  return place != 0 ? &kRows[place - 1] : nullptr;
}

/// No tag stands in two rows of a table.
template <class Row, std::size_t Count>
[[nodiscard]] constexpr bool EachTagOnce(const Row (&rows)[Count]) {
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    std::size_t found = 0;
    for (const Row& row : rows) found += row.tags.Has(number) ? 1 : 0;
    if (found > 1) return false;
  }
  return true;
}

}  // namespace ostrel
