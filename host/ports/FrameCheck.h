// The check that ends every frame, sent low byte first.
#pragma once

#include <cstdint>
#include <span>

#include "platform/crc16.h"

namespace ostrel::host {

[[nodiscard]] inline bool HasRightCheck(std::span<const std::uint8_t> frame) {
  constexpr std::size_t kCheckBytes = 2;
  if (frame.size() <= kCheckBytes) return false;
  const std::uint16_t check = platform::Crc16(frame.first(frame.size() - kCheckBytes));
  return frame[frame.size() - 2] == (check & 0xFFU) && frame[frame.size() - 1] == check >> 8U;
}

}  // namespace ostrel::host
