// What a receiver makes of bytes that were sent at another speed or parity than it is set to: it samples in the middle of where
// it believes the bits to be.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace ostrel::sim {

enum class Parity : std::uint8_t { None, Even, Odd };

/// How a serial line is set; eight data bits and one stop bit always.
struct SerialMode {
  std::uint32_t baud = 9600;
  Parity parity = Parity::None;

  bool operator==(const SerialMode&) const = default;
};

struct Received {
  std::vector<std::uint8_t> bytes;  // 0 for one without its stop bit, as a driver hands it on
  bool clean = true;                // every byte had its stop bit and its parity
};

/// Bytes sent without a pause on a line that is idle before and after.
[[nodiscard]] Received Receive(std::span<const std::uint8_t> sent, SerialMode sender, SerialMode receiver);

}  // namespace ostrel::sim
