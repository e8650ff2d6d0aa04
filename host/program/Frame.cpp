#include "host/program/Frame.h"

#include <fmt/format.h>

#include "host/session/Failure.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kLongestRequest = 254;

int Digit(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

}  // namespace

std::vector<std::uint8_t> ParseHex(const std::vector<std::string>& texts) {
  std::vector<std::uint8_t> bytes;
  for (const std::string& text : texts) {
    int high = -1;
    for (const char character : text) {
      if (character == ' ' && high < 0) continue;
      const int digit = Digit(character);
      if (digit < 0) throw Failure(kExitUsage, fmt::format("\"{}\" is not hexadecimal", text));
      if (high >= 0) bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
      high = high < 0 ? digit : -1;
    }
    if (high >= 0) throw Failure(kExitUsage, fmt::format("\"{}\" ends within a byte", text));
  }
  if (bytes.empty() || bytes.size() > kLongestRequest)
    throw Failure(kExitUsage, fmt::format("a frame has 1 to {} bytes", kLongestRequest));
  return bytes;
}

std::string HexText(std::span<const std::uint8_t> bytes) { return fmt::format("{:02X}", fmt::join(bytes, " ")); }

}  // namespace ostrel::host
