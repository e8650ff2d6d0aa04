// The check that ends every frame: CRC-16 with the reflected polynomial A001, begun with FFFF; sent low byte first.
#pragma once

#include <cstdint>
#include <span>

namespace ostrel::host {

[[nodiscard]] inline std::uint16_t FrameCheck(std::span<const std::uint8_t> bytes) {
  std::uint32_t check = 0xFFFF;
  for (const std::uint8_t byte : bytes) {
    check ^= byte;
    for (int bit = 0; bit < 8; ++bit) check = (check & 1U) != 0 ? (check >> 1U) ^ 0xA001U : check >> 1U;
  }
  return static_cast<std::uint16_t>(check);
}

[[nodiscard]] inline bool HasRightCheck(std::span<const std::uint8_t> frame) {
  constexpr std::size_t kCheckBytes = 2;
  if (frame.size() <= kCheckBytes) return false;
  const std::uint16_t check = FrameCheck(frame.first(frame.size() - kCheckBytes));
  return frame[frame.size() - 2] == (check & 0xFFU) && frame[frame.size() - 1] == check >> 8U;
}

}  // namespace ostrel::host
