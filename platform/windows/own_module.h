// The handle of the module that this code was linked into; the program's own would lead to the program's resources.
#pragma once

#include "platform/windows/com_types.h"

namespace ostrel::platform {

[[nodiscard]] HMODULE OwnModule();

}  // namespace ostrel::platform
