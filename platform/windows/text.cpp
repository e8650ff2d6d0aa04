#include "platform/text.h"

#include <clocale>

namespace ostrel::platform {

void UseCp1251Locale() { static_cast<void>(std::setlocale(LC_ALL, ".1251")); }

}  // namespace ostrel::platform
