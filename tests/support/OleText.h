// Wide literals: the system's wide character has 16 bits on every target, but not one type.
#pragma once

#include <string_view>

#include "platform/text.h"

namespace ostrel::test {

inline platform::OleString Ole(std::u16string_view text) { return {text.begin(), text.end()}; }

}  // namespace ostrel::test
