// The table that a person watches: meters with their values, and the latest events under it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/show/Output.h"

namespace ostrel::host {

/// Redraws the terminal in place after each pass. Where it takes lines they are typed below it: they turn pages and choose tags.
[[nodiscard]] std::unique_ptr<Output> MakeLiveTable(bool takesLines);

/// The table of a pass as plain lines, without anything cut away.
[[nodiscard]] std::string TableText(const std::string& channel, const PassReport& report);

/// Characters that a UTF-8 text takes on a terminal.
[[nodiscard]] std::size_t DisplayWidth(const std::string& text);
/// Cut or filled with blanks to a width.
[[nodiscard]] std::string Padded(const std::string& text, std::size_t width);

}  // namespace ostrel::host
