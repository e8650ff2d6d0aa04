#include "tests/support/Hex.h"

#include <gtest/gtest.h>

#include <array>
#include <charconv>

namespace ostrel::test {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

constexpr std::array<std::uint16_t, 256> MakeCheckTable() {
  std::array<std::uint16_t, 256> table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) value = (value & 1U) != 0 ? (value >> 1) ^ 0xA001U : value >> 1;
    table[byte] = static_cast<std::uint16_t>(value);
  }
  return table;
}

constexpr auto kCheckTable = MakeCheckTable();

}  // namespace

Bytes Hex(std::string_view text) {
  std::string digits(text);
  std::erase(digits, ' ');
  Bytes bytes(digits.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* const end = digits.data() + 2 * i + 2;
    EXPECT_EQ(end, std::from_chars(end - 2, end, bytes[i], 16).ptr) << "not hexadecimal: " << text;
  }
  EXPECT_EQ(0U, digits.size() % 2) << "half a byte at the end: " << text;
  return bytes;
}

Bytes WithCheck(Bytes bytes) {
  std::uint32_t check = 0xFFFF;
  for (const std::uint8_t byte : bytes) check = (check >> 8) ^ kCheckTable[(check ^ byte) & 0xFFU];
  bytes.push_back(static_cast<std::uint8_t>(check & 0xFFU));
  bytes.push_back(static_cast<std::uint8_t>(check >> 8));
  return bytes;
}

Bytes Frame(std::string_view text) { return WithCheck(Hex(text)); }

std::string ToHex(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0FU];
  }
  return text;
}

}  // namespace ostrel::test
