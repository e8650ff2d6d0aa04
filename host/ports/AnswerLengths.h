// How long the answer to each request was last. A port that knows it need not wait for quiet behind every answer, which takes
// longer than the answer itself: when that many bytes with a right check have come, the answer is whole. It is no more than
// a guess that the check confirms: of the answers that changed their length, one in 65,536 begins with a frame of the old one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ostrel::host {

class AnswerLengths {
 public:
  /// 0: not known.
  [[nodiscard]] std::size_t Of(std::span<const std::uint8_t> request) const;
  /// Keeps the few thousand that a line of many meters needs in a pass; what else is asked takes the place of some.
  void Learn(std::span<const std::uint8_t> request, std::size_t length);

 private:
  struct Known {
    std::uint32_t print = 0;  // of the request, beside its place in the table
    std::uint16_t length = 0;
  };
  static constexpr std::size_t kSets = 512;
  using Set = std::array<Known, 8>;

  struct Place {
    std::size_t set;
    std::uint32_t print;
  };
  [[nodiscard]] static Place PlaceOf(std::span<const std::uint8_t> request);

  std::vector<Set> sets_;  // none before the first was learned
  std::size_t replaced_ = 0;
};

}  // namespace ostrel::host
