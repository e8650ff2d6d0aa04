// Plain 32-bit flags of the host's records that two threads touch. The records stay copyable as bytes, so the atomic
// access is made where the flag is used.
#pragma once

#include <atomic>
#include <cstdint>

namespace ostrel {

[[nodiscard]] inline std::uint32_t LoadFlag(std::uint32_t& flag) {
  return std::atomic_ref<std::uint32_t>(flag).load(std::memory_order_acquire);
}

inline void StoreFlag(std::uint32_t& flag, std::uint32_t value) {
  std::atomic_ref<std::uint32_t>(flag).store(value, std::memory_order_release);
}

}  // namespace ostrel
