#include "host/ports/AnswerLengths.h"

#include <algorithm>

namespace ostrel::host {

AnswerLengths::Place AnswerLengths::PlaceOf(std::span<const std::uint8_t> request) {
  constexpr std::uint64_t kStart = 0xCBF29CE484222325;
  constexpr std::uint64_t kFactor = 0x100000001B3;
  std::uint64_t hash = kStart;
  for (const std::uint8_t byte : request) hash = (hash ^ byte) * kFactor;
  return {.set = static_cast<std::size_t>(hash % kSets), .print = static_cast<std::uint32_t>(hash >> 32U)};
}

std::size_t AnswerLengths::Of(std::span<const std::uint8_t> request) const {
  if (sets_.empty()) return 0;
  const Place place = PlaceOf(request);
  for (const Known& known : sets_[place.set]) {
    if (known.print == place.print) return known.length;
  }
  return 0;
}

void AnswerLengths::Learn(std::span<const std::uint8_t> request, std::size_t length) {
  if (sets_.empty()) sets_.resize(kSets);
  const Place place = PlaceOf(request);
  Set& set = sets_[place.set];
  auto known = std::ranges::find(set, place.print, &Known::print);
  if (known == set.end()) known = std::ranges::find(set, 0, &Known::length);
  // In turns, and not the one that was not used for longest: with one request too many for a set, going round would lose all.
  if (known == set.end()) known = set.begin() + static_cast<std::ptrdiff_t>(replaced_++ % set.size());
  *known = {.print = place.print, .length = static_cast<std::uint16_t>(length)};
}

}  // namespace ostrel::host
