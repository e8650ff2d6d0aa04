// What a meter's answers say about the meter itself: its transformation coefficients and its variant.
#pragma once

#include <cstdint>
#include <map>

#include "Protocol/model/VariantMap.h"

namespace ostrel {

struct DeviceEntry;

/// Keeps in the meter's entry what the answer to a coefficient's, the constant's or the variant's reading says; answers to
/// other tags are left alone. Gives the variant where the answer names it: one that nobody knows is entered in the map with
/// an empty name and zeros. The caller holds ExchangeLock. `answer` holds its data from byte 1 on.
const VariantInfo* LearnFromAnswer(DeviceEntry& entry, std::map<VariantKey, VariantInfo>& variants, std::uint32_t tagNumber,
                                   const std::uint8_t* answer);

}  // namespace ostrel
