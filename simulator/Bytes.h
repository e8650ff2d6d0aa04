// Bytes on the line as the meter sees them: the check, packed decimals, numbers with the high byte first, hex text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace ostrel::sim {

/// CRC-16 with the reflected polynomial 0xA001 and start 0xFFFF.
[[nodiscard]] std::uint16_t Check(std::span<const std::uint8_t> bytes);

/// Appends the check, low byte first.
void AppendCheck(std::vector<std::uint8_t>& frame);

/// True when the last two bytes are the check of those before them.
[[nodiscard]] bool CheckFits(std::span<const std::uint8_t> frame);

/// Two decimal digits in a byte, for 0..99.
[[nodiscard]] std::uint8_t Bcd(int value);
/// The number in a packed byte, or -1 when a nibble is no digit.
[[nodiscard]] int BcdValue(std::uint8_t byte);

/// Appends the low `width` bytes of a number, high byte first.
void AppendBig(std::vector<std::uint8_t>& bytes, std::uint32_t value, int width);
/// The number in all bytes given (at most four), high byte first.
[[nodiscard]] std::uint32_t BigValue(std::span<const std::uint8_t> bytes);

/// Hex digit pairs, blanks allowed between them; nothing when the text is anything else.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> FromHex(std::string_view text);

}  // namespace ostrel::sim
