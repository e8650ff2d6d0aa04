// Speed and parity of a serial line, as the mode string of the port interface carries them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ostrel::host {

enum class Parity : std::uint8_t { None, Even, Odd, Mark, Space };

struct LineMode {
  std::uint32_t baud = 9600;
  Parity parity = Parity::None;  // eight data bits and one stop bit always
};

/// "baud=9600 data=8 parity=O stop=1"; parity=NONE is no parity. Nothing when the text is not of this form.
[[nodiscard]] std::optional<LineMode> ParseLineMode(std::string_view text);

/// ms that `characters` take on the line, rounded up: start bit, eight data bits, parity or a second stop bit, stop bit.
[[nodiscard]] std::uint32_t CharactersMs(std::uint32_t characters, std::uint32_t baud);

}  // namespace ostrel::host
