// The walk over a meter's tags in a poll pass.
#pragma once

#include <cstdint>

namespace ostrel {

class Meters;

/// 1 when a client uses at least one of the meter's tags.
std::uint32_t AnyTagInUse(Meters& meters, std::uint32_t device);
void ClearUpdated(Meters& meters, std::uint32_t device);
/// Serves every tag in use: its write, its reading, and those that share it. 0 when a read failed. Poll thread only, under
/// PollLock.
std::uint32_t ServeTags(Meters& meters, std::uint32_t device);

}  // namespace ostrel
