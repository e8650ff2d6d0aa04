// What the program reads out of frames by itself, beside the plug-in.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace ostrel::host {

/// The frame with its check.
[[nodiscard]] std::vector<std::uint8_t> WithCheck(std::span<const std::uint8_t> frame);

/// The first frame with a right check that begins with this address; empty when there is none.
[[nodiscard]] std::span<const std::uint8_t> FrameOf(std::span<const std::uint8_t> bytes, std::uint8_t address);

/// Seconds by which a meter's clock is ahead of the computer's; `answer` to the clock request, 11 bytes.
[[nodiscard]] std::int64_t ClockOffset(std::span<const std::uint8_t> answer);

}  // namespace ostrel::host
