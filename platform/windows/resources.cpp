#include "platform/resources.h"

#include <algorithm>
#include <cstring>

#include "platform/text.h"
#include "platform/windows/own_module.h"

namespace ostrel::platform {

bool LoadModuleString(std::uint32_t id, char* buffer, std::size_t size) {
  if (id > UINT16_MAX || size == 0) return false;
  // With no buffer the system gives the address of its own text, which has no terminator.
  const wchar_t* wide = nullptr;
  const int wideLength = ::LoadStringW(OwnModule(), id, reinterpret_cast<LPWSTR>(&wide), 0);
  if (wideLength <= 0) return false;
  const std::string text = OleToCp1251({wide, static_cast<std::size_t>(wideLength)});
  const std::size_t length = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return true;
}

}  // namespace ostrel::platform
