// The three load profiles of a meter: their numbers in requests, their tags and where their records are kept.
#pragma once

#include <cstdint>

#include "Protocol/meter/MeterParameters.h"
#include "Protocol/model/DeviceEntry.h"

namespace ostrel {

/// P+, P-, Q+, Q-: the powers of a record and the tags of a profile, in this order.
inline constexpr std::uint32_t kPowers = 4;

struct ProfileRow {
  std::uint8_t searchNumber;
  std::uint8_t memory;
  std::uint32_t firstTag;
  HostVector<ProfileRecord> DeviceEntry::*store;
};

/// By profile.
inline constexpr ProfileRow kProfileRows[] = {
    {.searchNumber = 0, .memory = 3, .firstTag = 40108, .store = &DeviceEntry::ProfileStore1},
    {.searchNumber = 1, .memory = 8, .firstTag = 40112, .store = &DeviceEntry::ProfileStore2},
    {.searchNumber = 2, .memory = 9, .firstTag = 40116, .store = &DeviceEntry::ProfileStore3},
};

[[nodiscard]] constexpr const ProfileRow& RowOf(Profile profile) { return kProfileRows[static_cast<std::uint32_t>(profile)]; }

}  // namespace ostrel
