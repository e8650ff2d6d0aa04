// The request that reads a tag. A tag brings most of it from the catalogue; a table says which tags differ and how.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace ostrel {

class CDeviceTag;

struct RequestFrame {
  std::array<std::uint8_t, 7> bytes{};
  std::uint32_t length = 0;

  [[nodiscard]] std::span<const std::uint8_t> Bytes() const { return std::span(bytes).first(length); }
};

enum class WhichMonth : std::uint8_t { Current = 0, Previous = 1 };

/// The month of the meter's own clock that a tag's request names; nothing for most tags.
[[nodiscard]] std::optional<WhichMonth> MonthAsked(const CDeviceTag& tag);
/// 0x30 + the month (1..12) or the one before it, as such a request has it.
[[nodiscard]] std::uint8_t MonthSelector(WhichMonth which, int month);

/// What a request takes from the meter.
struct RequestSubject {
  std::uint32_t address = 0;
  std::uint8_t log = 0;                 // event log to read
  std::optional<std::uint8_t> month{};  // for MonthAsked; the catalogue's own value without
};

/// The frame with its check; empty for a tag whose request length is none of 4 to 7.
[[nodiscard]] RequestFrame BuildRequest(const CDeviceTag& tag, const RequestSubject& subject);

/// The selector byte of load control and limits (tags 212 to 242), the same for reading and writing. Other tags leave it.
void LimitSelector(std::uint32_t tagNumber, std::uint8_t& selector);

}  // namespace ostrel
