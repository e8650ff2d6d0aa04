// One power of one interval of a load profile, as the per-meter stores and the cache of the last listing keep it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/variant.h"

namespace ostrel {

/// 48 bytes in every build. The value has a slot of 24 bytes, the size of the widest VARIANT: copy it as a VARIANT,
/// never as bytes.
struct ProfileRecord {
  FILETIME Time;               // end of the interval, the meter's wall clock
  std::uint16_t Address;       // in the meter's memory
  std::uint16_t padding_[3];
  union {
    VARIANT Value;             // VT_R4, kW or kvar
    std::byte slot_[24];
  };
  std::uint32_t Quality;       // OPC HDA quality word
  std::uint32_t TagId;
};
static_assert(sizeof(ProfileRecord) == 48 && offsetof(ProfileRecord, Address) == 8 && offsetof(ProfileRecord, Value) == 16 &&
              offsetof(ProfileRecord, Quality) == 40 && offsetof(ProfileRecord, TagId) == 44);

}  // namespace ostrel
