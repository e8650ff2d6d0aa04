#include "platform/user.h"

#include <windows.h>

#include "platform/text.h"

namespace ostrel::platform {

std::string UserName() {
  wchar_t name[257] = {};
  DWORD size = 257;
  return GetUserNameW(name, &size) != 0 ? OleToUtf8(name) : std::string("?");
}

}  // namespace ostrel::platform
