// The request that reads a tag. A tag brings most of it from the catalogue; a table says which tags differ and how.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace ostrel {

class CDeviceTag;
class CProtocol;

struct RequestFrame {
  std::array<std::uint8_t, 7> bytes{};
  std::uint32_t length = 0;

  [[nodiscard]] std::span<const std::uint8_t> Bytes() const { return std::span(bytes).first(length); }
};

/// The frame with its check; empty for a tag whose request length is none of 4 to 7. The month tags ask the meter for its
/// clock first, so the caller holds ExchangeLock and nothing that it needs stands in a buffer of the line.
[[nodiscard]] RequestFrame BuildRequest(CProtocol& protocol, const CDeviceTag& tag, std::uint32_t device);

}  // namespace ostrel
