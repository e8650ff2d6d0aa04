// The two-digit packed BCD in which meters send and take dates and times.
#pragma once

#include <cstdint>

namespace ostrel {

/// Two packed digits; the nibbles are not checked.
[[nodiscard]] constexpr int FromBcd(std::uint8_t byte) { return (byte >> 4) * 10 + (byte & 0x0F); }
/// Values 0..99; only the low byte of others counts.
[[nodiscard]] constexpr std::uint8_t ToBcd(int value) {
  const auto low = static_cast<std::uint8_t>(value);
  return static_cast<std::uint8_t>(((low / 10) << 4) | (low % 10));
}

}  // namespace ostrel
