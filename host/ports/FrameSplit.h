// Frames that came one right behind the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ostrel::host {

/// No answer of a meter is longer.
inline constexpr std::size_t kLongestFrame = 300;

/// The frames that `bytes` consist of to the last byte; none when they do not.
[[nodiscard]] std::vector<std::vector<std::uint8_t>> SplitFrames(std::span<const std::uint8_t> bytes);

}  // namespace ostrel::host
