// What a meter says about itself: its transformation coefficients and its variant, which scale everything else. Read once
// after each connection, by the poll thread or by a history listing that comes first.
#pragma once

#include <cstdint>
#include <map>

#include "Protocol/model/VariantMap.h"

namespace ostrel {

class Meters;
struct DeviceEntry;

/// Meters of types 2 and 12 have no transformation coefficients.
[[nodiscard]] constexpr bool HasCoefficients(std::uint32_t typeId) { return typeId != 2 && typeId != 12; }

/// Keeps in the meter's entry what the answer to a coefficient's, the constant's or the variant's reading says; answers to
/// other tags are left alone. Gives the variant where the answer names it: one that nobody knows is entered in the map with
/// an empty name and zeros. The caller holds ExchangeLock. `answer` holds its data from byte 1 on.
const VariantInfo* LearnFromAnswer(DeviceEntry& entry, std::map<VariantKey, VariantInfo>& variants, std::uint32_t tagNumber,
                                   const std::uint8_t* answer);

/// Forgets the factors and reads them anew; 0 when a read failed, and the factors may then be neutral ones. Holds
/// ExchangeLock from the first to the last, so that no value is scaled in between.
std::uint32_t ReadDeviceInfo(Meters& meters, std::uint32_t device);

/// The same unless `InfoRead` says that it is done, which is looked at and set in the same hold: of two that come at once the
/// second finds it done. 0 when the meter is not known after it, a switched-off meter's included; `InfoRead` then stays 0.
[[nodiscard]] std::uint32_t ReadInfoOnce(Meters& meters, std::uint32_t device);

}  // namespace ostrel
