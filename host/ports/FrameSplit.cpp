#include "host/ports/FrameSplit.h"

#include <algorithm>

#include "host/ports/FrameCheck.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kShortestFrame = 4;

}  // namespace

// From the end, for every place: how long the frame is with which the rest can be split, 0 where it cannot. The longest is
// taken, since a check that fits inside a frame is chance.
std::vector<std::vector<std::uint8_t>> SplitFrames(std::span<const std::uint8_t> bytes) {
  std::vector<std::vector<std::uint8_t>> frames;
  if (bytes.size() <= kLongestFrame && HasRightCheck(bytes)) return {{bytes.begin(), bytes.end()}};
  std::vector<std::size_t> length(bytes.size() + 1, 0);
  for (std::size_t from = bytes.size(); from-- > 0;) {
    for (std::size_t size = std::min(kLongestFrame, bytes.size() - from); size >= kShortestFrame && length[from] == 0; --size) {
      const bool restSplits = from + size == bytes.size() || length[from + size] != 0;
      if (restSplits && HasRightCheck(bytes.subspan(from, size))) length[from] = size;
    }
  }
  for (std::size_t from = 0; from < bytes.size() && length[from] != 0; from += length[from]) {
    frames.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                        bytes.begin() + static_cast<std::ptrdiff_t>(from + length[from]));
  }
  return frames;
}

}  // namespace ostrel::host
