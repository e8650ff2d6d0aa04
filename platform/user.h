// Who runs the program.
#pragma once

#include <string>

namespace ostrel::platform {

/// The account's name in UTF-8, or its number where it has none.
[[nodiscard]] std::string UserName();

}  // namespace ostrel::platform
