#include "platform/text.h"

#include <windows.h>

#include <clocale>

namespace ostrel::platform {

std::optional<std::string> Utf8ToSystemPath(std::string_view path) {
  if (::GetACP() == CP_UTF8) return std::string(path);
  const OleString wide = Utf8ToOle(path);
  const auto length = static_cast<int>(wide.size());
  BOOL replaced = FALSE;
  const int bytes = ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), length, nullptr, 0, nullptr, &replaced);
  if (replaced || bytes <= 0) return std::nullopt;
  std::string narrow(static_cast<std::size_t>(bytes), '\0');
  ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), length, narrow.data(), bytes, nullptr, nullptr);
  return narrow;
}

void UseCp1251Locale() { static_cast<void>(std::setlocale(LC_ALL, ".1251")); }

}  // namespace ostrel::platform
