#include "platform/user.h"

#include <pwd.h>
#include <unistd.h>

namespace ostrel::platform {

std::string UserName() {
  const passwd* const account = getpwuid(getuid());
  return account != nullptr ? account->pw_name : std::to_string(getuid());
}

}  // namespace ostrel::platform
