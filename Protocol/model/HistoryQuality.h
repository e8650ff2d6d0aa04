// OPC HDA quality words: the raw-data flag and the OPC DA quality in the low byte.
#pragma once

#include <cstdint>

namespace ostrel {

inline constexpr std::uint32_t kHistoryGood = 0x000400C0;
inline constexpr std::uint32_t kHistoryBad = 0x00040000;

}  // namespace ostrel
