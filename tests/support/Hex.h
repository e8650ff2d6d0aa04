// Frames as people write them in a meter's manual: "0C 05 00 00". The check is computed here a second way (by table), so
// that a mistake in the plug-in's own cannot hide.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::test {

using Bytes = std::vector<std::uint8_t>;

/// Bytes of hexadecimal digits; blanks are ignored, anything else fails the test.
[[nodiscard]] Bytes Hex(std::string_view text);

/// The same with the check appended.
[[nodiscard]] Bytes Frame(std::string_view text);
[[nodiscard]] Bytes WithCheck(Bytes bytes);

/// "0C 05 00 00"
[[nodiscard]] std::string ToHex(std::span<const std::uint8_t> bytes);

}  // namespace ostrel::test
