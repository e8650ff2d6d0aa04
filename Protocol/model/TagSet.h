// Rows of the acquisition tables apply to runs of tag numbers; code finds the row of a tag here.
#pragma once

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

template <class Row, std::size_t Count>
[[nodiscard]] constexpr const Row* FindRow(const Row (&rows)[Count], std::uint32_t number) {
  for (const Row& row : rows) {
    if (row.tags.Has(number)) return &row;
  }
  return nullptr;
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
