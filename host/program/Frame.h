// Frames as people write them: hexadecimal, with the check that meters ask for.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ostrel::host {

/// "0C 05 00" or "0C0500", in one text or several. Throws Failure (usage).
[[nodiscard]] std::vector<std::uint8_t> ParseHex(const std::vector<std::string>& texts);
[[nodiscard]] std::string HexText(std::span<const std::uint8_t> bytes);

/// The check of a frame: CRC-16 with the reflected polynomial A001, begun with FFFF; sent low byte first.
[[nodiscard]] std::uint16_t FrameCheck(std::span<const std::uint8_t> bytes);
[[nodiscard]] bool HasRightCheck(std::span<const std::uint8_t> frame);

}  // namespace ostrel::host
