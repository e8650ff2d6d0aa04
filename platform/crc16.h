// CRC-16 with the reflected polynomial A001, begun with FFFF: the check that ends the meters' frames.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace ostrel::platform {

namespace crc16 {

consteval std::array<std::uint16_t, 256> MakeTable() {
  std::array<std::uint16_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t check = byte;
    for (int bit = 0; bit < 8; ++bit) check = (check & 1U) != 0 ? (check >> 1U) ^ 0xA001U : check >> 1U;
    table[byte] = static_cast<std::uint16_t>(check);
  }
  return table;
}

/// What a byte does to the check; every byte of every frame goes through here, several times over.
inline constexpr std::array<std::uint16_t, 256> kTable = MakeTable();

}  // namespace crc16

[[nodiscard]] inline std::uint16_t Crc16(std::span<const std::uint8_t> bytes) {
  std::uint32_t check = 0xFFFF;
  for (const std::uint8_t byte : bytes) check = check >> 8U ^ crc16::kTable[(check ^ byte) & 0xFFU];
  return static_cast<std::uint16_t>(check);
}

}  // namespace ostrel::platform
