#include "platform/text.h"

#include <clocale>

namespace ostrel::platform {

std::optional<std::string> Utf8ToSystemPath(std::string_view path) { return std::string(path); }

// The same language and code page under the name that this system has for them.
void UseCp1251Locale() { static_cast<void>(std::setlocale(LC_ALL, "ru_RU.CP1251")); }

}  // namespace ostrel::platform
