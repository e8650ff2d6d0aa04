#include "host/program/WriteLine.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kFewestWords = 4;

}  // namespace

std::vector<std::string> SplitWords(std::string_view text) {
  std::vector<std::string> words;
  bool quoted = false;
  bool inside = false;
  for (const char character : text) {
    const bool blank = !quoted && (character == ' ' || character == '\t');
    if (!blank && !inside) words.emplace_back();
    inside = !blank;
    if (character == '"') {
      quoted = !quoted;
    } else if (inside) {
      words.back() += character;
    }
  }
  return words;
}

std::optional<WriteLine> ParseWriteLine(std::string_view text) {
  const std::vector<std::string> words = SplitWords(text);
  if (words.size() < kFewestWords || words[0] != "write") return std::nullopt;
  WriteLine line{.meter = words[1], .tag = words[2], .value = words.back()};
  for (std::size_t i = 3; i + 1 < words.size(); ++i) line.tag += ' ' + words[i];
  return line;
}

}  // namespace ostrel::host
