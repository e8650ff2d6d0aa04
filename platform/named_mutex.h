// A mutex that several processes share by name. One that its owner left locked when it died counts as free.
#pragma once

#include <cstdint>

#include "platform/com.h"

namespace ostrel::platform {

using NamedMutexHandle = void*;
inline const NamedMutexHandle kNoMutex = reinterpret_cast<NamedMutexHandle>(static_cast<std::intptr_t>(-1));

/// Creates or opens the mutex. Names are compared whole and may hold any characters. kNoMutex on failure.
[[nodiscard]] NamedMutexHandle OpenNamedMutex(const OLECHAR* name);
/// Waits without limit; false when the handle is not a mutex.
[[nodiscard]] bool LockNamedMutex(NamedMutexHandle mutex);
void UnlockNamedMutex(NamedMutexHandle mutex);
void CloseNamedMutex(NamedMutexHandle mutex);

}  // namespace ostrel::platform
