#pragma once

#include "platform/windows/com_types.h"

namespace ostrel::platform {

/// The system's own structure, 24 bytes in a 32-bit build: hosts place it inside their records.
using CriticalSectionState = CRITICAL_SECTION;

}  // namespace ostrel::platform
