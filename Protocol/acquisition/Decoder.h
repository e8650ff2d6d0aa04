// From answer bytes to a tag's value, scaled by the meter's constant and factors.
#pragma once

#include <cstdint>

namespace ostrel {

class CDeviceTag;
class Meters;

/// Decodes AnswerBuffer (event logs: LogCache) into the tag under the host's tag lock; 1, or 0 without a meter or a host.
std::uint32_t DecodeTag(Meters& meters, CDeviceTag& tag, std::uint32_t device);

}  // namespace ostrel
