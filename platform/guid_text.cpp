#include "platform/guid_text.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace ostrel::platform {
namespace {

constexpr std::string_view kShape = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";

bool HasShape(std::string_view text) {
  if (text.size() != kShape.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = std::string_view("0123456789abcdefABCDEF").find(text[i]) != std::string_view::npos;
    if (kShape[i] == 'x' ? !digit : text[i] != kShape[i]) return false;
  }
  return true;
}

template <typename Number>
Number HexAt(std::string_view text, std::size_t offset) {
  Number number = 0;
  std::from_chars(text.data() + offset, text.data() + offset + 2 * sizeof(Number), number, 16);
  return number;
}

}  // namespace

std::string GuidToText(const GUID& guid) {
  char text[kShape.size() + 1];
  const auto& tail = guid.Data4;
  std::snprintf(text, sizeof text, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", static_cast<unsigned long>(guid.Data1),
                guid.Data2, guid.Data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5], tail[6], tail[7]);
  return text;
}

std::optional<GUID> GuidFromText(std::string_view text) {
  if (!HasShape(text)) return std::nullopt;
  constexpr std::array<std::size_t, 8> kTail = {20, 22, 25, 27, 29, 31, 33, 35};
  GUID guid = {};
  guid.Data1 = HexAt<std::uint32_t>(text, 1);
  guid.Data2 = HexAt<std::uint16_t>(text, 10);
  guid.Data3 = HexAt<std::uint16_t>(text, 15);
  for (std::size_t i = 0; i < kTail.size(); ++i) guid.Data4[i] = HexAt<std::uint8_t>(text, kTail[i]);
  return guid;
}

}  // namespace ostrel::platform
