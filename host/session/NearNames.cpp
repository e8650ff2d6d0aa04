#include "host/session/NearNames.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "platform/text.h"

namespace ostrel::host {
namespace {

char Lower(char character) { return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character; }

std::string LowerText(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
  return lower;
}

}  // namespace

std::string Lowered(std::string_view utf8) {
  std::string lower = platform::Utf8ToCp1251(utf8);
  for (char& letter : lower) {
    const auto byte = static_cast<unsigned char>(letter);
    const bool capital = (byte >= 'A' && byte <= 'Z') || (byte >= 0xC0 && byte <= 0xDF);
    if (capital) letter = static_cast<char>(byte + 0x20);
    if (byte == 0xA8) letter = static_cast<char>(0xB8);
  }
  return lower;
}

std::size_t EditDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < right.size(); ++j) {
      const std::size_t replaced = diagonal + (Lower(left[i]) == Lower(right[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::vector<std::string> NearNames(std::string_view name, const std::vector<std::string>& known, std::size_t limit) {
  const std::string lower = LowerText(name);
  std::vector<std::pair<std::size_t, std::string>> closest;
  for (const std::string& candidate : known) {
    const std::size_t distance = EditDistance(name, candidate);
    const bool contains = !lower.empty() && LowerText(candidate).find(lower) != std::string::npos;
    if (contains || distance <= std::max(name.size(), candidate.size()) / 2) closest.emplace_back(distance, candidate);
  }
  std::stable_sort(closest.begin(), closest.end(), [](const auto& left, const auto& right) { return left.first < right.first; });
  std::vector<std::string> names;
  for (std::size_t i = 0; i < closest.size() && i < limit; ++i) names.push_back(closest[i].second);
  return names;
}

std::string DidYouMean(std::string_view name, const std::vector<std::string>& known) {
  const std::vector<std::string> closest = NearNames(name, known);
  if (closest.empty()) return {};
  std::string text = "; did you mean ";
  for (std::size_t i = 0; i < closest.size(); ++i) {
    if (i != 0) text += i + 1 == closest.size() ? " or " : ", ";
    text += '"' + closest[i] + '"';
  }
  return text + '?';
}

}  // namespace ostrel::host
