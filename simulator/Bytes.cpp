#include "simulator/Bytes.h"

namespace ostrel::sim {
namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::uint16_t Check(std::span<const std::uint8_t> bytes) {
  unsigned value = 0xFFFF;
  for (const std::uint8_t byte : bytes) {
    value ^= byte;
    for (int bit = 0; bit < 8; ++bit) value = (value & 1U) != 0 ? (value >> 1) ^ 0xA001U : value >> 1;
  }
  return static_cast<std::uint16_t>(value);
}

void AppendCheck(std::vector<std::uint8_t>& frame) {
  const std::uint16_t check = Check(frame);
  frame.push_back(static_cast<std::uint8_t>(check & 0xFFU));
  frame.push_back(static_cast<std::uint8_t>(check >> 8));
}

bool CheckFits(std::span<const std::uint8_t> frame) {
  if (frame.size() < 3) return false;
  const std::size_t body = frame.size() - 2;
  const std::uint16_t check = Check(frame.first(body));
  return frame[body] == (check & 0xFFU) && frame[body + 1] == check >> 8;
}

std::uint8_t Bcd(int value) { return static_cast<std::uint8_t>(value / 10 % 10 * 16 + value % 10); }

int BcdValue(std::uint8_t byte) {
  const int high = byte >> 4;
  const int low = byte & 0x0F;
  return high > 9 || low > 9 ? -1 : high * 10 + low;
}

void AppendBig(std::vector<std::uint8_t>& bytes, std::uint32_t value, int width) {
  for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) bytes.push_back(static_cast<std::uint8_t>(value >> shift));
}

std::uint32_t BigValue(std::span<const std::uint8_t> bytes) {
  std::uint32_t value = 0;
  for (const std::uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

std::optional<std::vector<std::uint8_t>> FromHex(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    const int high = HexDigit(text[i]);
    const int low = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    i += 2;
  }
  return bytes;
}

}  // namespace ostrel::sim
