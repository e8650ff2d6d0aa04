// A client's write becomes a meter command.
#pragma once

#include <cstdint>

namespace ostrel {

class CDeviceTag;
class Meters;

/// 1 when the meter accepted the command (or for the exchange switch), 0 otherwise. Clears WritePending but for a time
/// correction of 0. The caller holds ExchangeLock.
std::uint32_t WriteTag(Meters& meters, CDeviceTag& tag, std::uint32_t device);

}  // namespace ostrel
