// Frames as people write them: hexadecimal.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/ports/FrameCheck.h"

namespace ostrel::host {

/// "0C 05 00" or "0C0500", in one text or several. Throws Failure (usage).
[[nodiscard]] std::vector<std::uint8_t> ParseHex(const std::vector<std::string>& texts);
[[nodiscard]] std::string HexText(std::span<const std::uint8_t> bytes);

}  // namespace ostrel::host
