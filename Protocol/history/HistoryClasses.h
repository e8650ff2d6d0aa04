// What the classes of history tags are, and which meter types serve them. The browser's tag lists, the depth table, the
// classes that a listing serves and those that a read serves are four tables of their own and do not follow from each
// other: some types browse the third profile and keep none of it, and type 8 reads cumulative energies that it lists none of.
#pragma once

#include <cstdint>
#include <optional>

#include "Protocol/meter/MeterParameters.h"
#include "Protocol/model/TagCatalogue.h"

namespace ostrel {

/// Several meter types as bits.
using TypeSet = std::uint32_t;

template <class... Type>
[[nodiscard]] constexpr TypeSet Types(Type... type) {
  return ((TypeSet{1} << type) | ...);
}

[[nodiscard]] constexpr bool Contains(TypeSet types, std::uint32_t meterType) {
  return meterType < 32 && ((types >> meterType) & 1U) != 0;
}

/// The nine types; every other one is served by no history operation.
inline constexpr TypeSet kAllTypes = Types(0, 1, 2, 3, 6, 7, 8, 11, 12);

/// Steps between the record times of an archive.
enum class ArchiveStep : std::uint8_t { Day, Month, Year };

/// The step of an energy class, nothing for a profile.
[[nodiscard]] constexpr std::optional<ArchiveStep> EnergyStep(std::uint32_t historyClass) {
  switch (historyClass) {
    case kHistoryDay:
    case kHistoryCumulativeDay:
      return ArchiveStep::Day;
    case kHistoryMonth:
    case kHistoryCumulativeMonth:
      return ArchiveStep::Month;
    case kHistoryYear:
    case kHistoryCumulativeYear:
      return ArchiveStep::Year;
    default:
      return std::nullopt;
  }
}

struct ProfileClass {
  std::uint32_t historyClass;
  Profile profile;
  TypeSet listed;  // types for which times are listed and checked
  TypeSet read;    // types for which values are given
};

inline constexpr ProfileClass kProfileClasses[] = {
    {.historyClass = kHistoryProfile, .profile = Profile::Main, .listed = kAllTypes, .read = kAllTypes},
    {.historyClass = kHistoryAdditionalProfile,
     .profile = Profile::Additional,
     .listed = Types(1, 3, 6, 7, 8, 11),
     .read = Types(1, 3, 6, 7, 8, 11)},
    {.historyClass = kHistoryThirdProfile, .profile = Profile::Third, .listed = Types(1, 8), .read = Types(8)},
};

/// Null for an energy class.
[[nodiscard]] constexpr const ProfileClass* FindProfileClass(std::uint32_t historyClass) {
  for (const ProfileClass& row : kProfileClasses) {
    if (row.historyClass == historyClass) return &row;
  }
  return nullptr;
}

}  // namespace ostrel
