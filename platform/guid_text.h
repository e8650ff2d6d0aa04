// A class id as text in braces with upper-case digits, the way the system writes one.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/com.h"

namespace ostrel::platform {

[[nodiscard]] std::string GuidToText(const GUID& guid);
/// Either case of the digits is read. Nothing when the text is anything but a class id in braces.
[[nodiscard]] std::optional<GUID> GuidFromText(std::string_view text);

}  // namespace ostrel::platform
