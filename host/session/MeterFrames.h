// What the program reads out of frames by itself, beside the plug-in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ostrel::host {

/// Of the password in an opening request.
inline constexpr std::size_t kPasswordBytes = 6;
/// Bytes of whole answers: to the request for the serial number, and for the variant.
inline constexpr std::size_t kSerialAnswer = 10;
inline constexpr std::size_t kVariantAnswer = 6;

/// The request that opens a meter's access channel, without its check.
[[nodiscard]] std::vector<std::uint8_t> OpeningRequest(std::uint8_t address, const std::string& password);

/// The frame with its check.
[[nodiscard]] std::vector<std::uint8_t> WithCheck(std::span<const std::uint8_t> frame);

/// The first frame with a right check that begins with this address; empty when there is none.
[[nodiscard]] std::span<const std::uint8_t> FrameOf(std::span<const std::uint8_t> bytes, std::uint8_t address);

/// Seconds by which a meter's clock is ahead of the computer's; `answer` to the clock request, 11 bytes.
[[nodiscard]] std::int64_t ClockOffset(std::span<const std::uint8_t> answer);

}  // namespace ostrel::host
