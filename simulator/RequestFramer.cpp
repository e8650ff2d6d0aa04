#include "simulator/RequestFramer.h"

#include <algorithm>
#include <utility>

#include "simulator/Bytes.h"

namespace ostrel::sim {
namespace {

constexpr std::size_t kShortest = 4;
constexpr std::size_t kLongest = 300;

/// Lengths that requests of a code have, its parameter given where the code has several shapes. A check that fits by
/// chance inside a longer request is thereby not taken for its end.
struct LengthRow {
  std::uint8_t code;
  int parameter;  // -1: any other
  std::size_t shortest, longest;
};

constexpr LengthRow kLengths[] = {
    {0x00, -1, 4, 4},   {0x01, -1, 10, 10}, {0x03, 0x07, 6, 6},   {0x03, 0x0C, 13, 13}, {0x03, 0x0D, 8, 8}, {0x03, 0x18, 6, 6},
    {0x03, 0x1B, 7, 7}, {0x03, 0x1C, 7, 7}, {0x03, 0x28, 14, 14}, {0x03, 0x2F, 6, 11},  {0x03, -1, 6, 300}, {0x04, -1, 5, 5},
    {0x05, -1, 6, 6},   {0x06, -1, 8, 8},   {0x08, 0x06, 5, 6},   {0x08, 0x11, 6, 6},   {0x08, 0x18, 6, 6}, {0x08, 0x20, 7, 7},
    {0x08, -1, 5, 7},   {0x09, -1, 6, 6},   {0x0A, -1, 9, 9},
};

bool LengthIsPossible(std::span<const std::uint8_t> frame) {
  const auto* row = std::ranges::find_if(kLengths, [&](const LengthRow& each) {
    return each.code == frame[1] && (each.parameter < 0 || (frame.size() > 4 && each.parameter == frame[2]));
  });
  return row == std::end(kLengths) || (frame.size() >= row->shortest && frame.size() <= row->longest);
}

/// Length of the request that the bytes begin with, or 0.
std::size_t CompleteLength(std::span<const std::uint8_t> bytes) {
  for (std::size_t length = kShortest; length <= bytes.size(); ++length) {
    const auto frame = bytes.first(length);
    if (LengthIsPossible(frame) && CheckFits(frame)) return length;
  }
  return 0;
}

}  // namespace

std::vector<std::vector<std::uint8_t>> RequestFramer::Feed(std::span<const std::uint8_t> bytes, std::int64_t nowMs) {
  last_ms_ = nowMs;
  gathered_.insert(gathered_.end(), bytes.begin(), bytes.end());
  std::vector<std::vector<std::uint8_t>> requests;
  while (const std::size_t length = CompleteLength(gathered_)) {
    const auto end = gathered_.begin() + static_cast<std::ptrdiff_t>(length);
    requests.emplace_back(gathered_.begin(), end);
    gathered_.erase(gathered_.begin(), end);
  }
  if (gathered_.size() > kLongest) gathered_.clear();
  return requests;
}

std::vector<std::uint8_t> RequestFramer::GiveUp(std::int64_t nowMs) {
  if (gathered_.empty() || nowMs - last_ms_ < kQuietGapMs) return {};
  return std::exchange(gathered_, {});
}

}  // namespace ostrel::sim
