// Bytes from a stream cut into requests. A request is complete as soon as its check fits at a length that its code can
// have, so that the answer need not wait; what never fits is given up after a quiet gap.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace ostrel::sim {

class RequestFramer {
 public:
  /// Takes bytes that have just come and returns the requests that are complete now.
  std::vector<std::vector<std::uint8_t>> Feed(std::span<const std::uint8_t> bytes, std::int64_t nowMs);

  /// What has lain unfinished for the quiet gap, as it is; empty when there is nothing to give up yet.
  std::vector<std::uint8_t> GiveUp(std::int64_t nowMs);

  /// True while part of a request is here.
  [[nodiscard]] bool Pending() const { return !gathered_.empty(); }

 private:
  std::vector<std::uint8_t> gathered_;
  std::int64_t last_ms_ = 0;
};

/// A request that is not finished after this much quiet is taken for noise.
inline constexpr std::int64_t kQuietGapMs = 50;

}  // namespace ostrel::sim
