#include "host/ports/LineMode.h"

#include <charconv>

namespace ostrel::host {
namespace {

struct ParityWord {
  std::string_view word;
  Parity parity;
};

constexpr ParityWord kParityWords[] = {
    {"N", Parity::None}, {"NONE", Parity::None}, {"E", Parity::Even},
    {"O", Parity::Odd},  {"M", Parity::Mark},    {"S", Parity::Space},
};

constexpr std::uint32_t kBitsPerCharacter = 11;

// The word behind "key=", up to the next blank; empty when the key is missing.
std::string_view WordOf(std::string_view text, std::string_view key) {
  const std::size_t at = text.find(key);
  if (at == std::string_view::npos) return {};
  const std::string_view rest = text.substr(at + key.size());
  return rest.substr(0, rest.find(' '));
}

}  // namespace

std::optional<LineMode> ParseLineMode(std::string_view text) {
  LineMode mode;
  const std::string_view baud = WordOf(text, "baud=");
  const auto read = std::from_chars(baud.data(), baud.data() + baud.size(), mode.baud);
  if (read.ec != std::errc() || read.ptr != baud.data() + baud.size() || mode.baud == 0) return std::nullopt;
  if (WordOf(text, "data=") != "8" || WordOf(text, "stop=") != "1") return std::nullopt;
  for (const ParityWord& row : kParityWords) {
    if (row.word != WordOf(text, "parity=")) continue;
    mode.parity = row.parity;
    return mode;
  }
  return std::nullopt;
}

std::uint32_t CharactersMs(std::uint32_t characters, std::uint32_t baud) {
  const std::uint64_t bits = std::uint64_t{characters} * kBitsPerCharacter;
  return static_cast<std::uint32_t>((bits * 1000 + baud - 1) / baud);
}

}  // namespace ostrel::host
