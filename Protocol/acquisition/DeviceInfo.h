// The one-time reading of a meter: coefficients, variant, constant. The poll thread does it after each connection, and so
// does a history listing that comes first.
#pragma once

#include <cstdint>

namespace ostrel {

class CProtocol;

/// Forgets the factors and reads them anew; 0 when a read failed, and the factors may then be neutral ones. Holds
/// ExchangeLock from the first to the last, so that no value is scaled in between.
std::uint32_t ReadDeviceInfo(CProtocol& protocol, std::uint32_t device);

/// The same unless `InfoRead` says that it is done, which is looked at and set in the same hold: of two that come at once the
/// second finds it done. 0 when the meter is not known after it, a switched-off meter's included; `InfoRead` then stays 0.
[[nodiscard]] std::uint32_t ReadInfoOnce(CProtocol& protocol, std::uint32_t device);

}  // namespace ostrel
