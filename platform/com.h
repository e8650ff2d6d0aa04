// The least of COM that the plug-in and its host meet on: identifiers, results, IUnknown, IClassFactory and
// task memory. On Windows these are the system's own; elsewhere the same names with the same binary meaning.
#pragma once

#if defined(_WIN32)
#include "platform/windows/com_types.h"
#else
#include "platform/posix/com_types.h"
#endif

#include <cstring>

namespace ostrel::platform {

/// Identifiers are compared as 16-byte blocks.
inline bool SameGuid(const GUID& left, const GUID& right) { return std::memcmp(&left, &right, sizeof(GUID)) == 0; }

/// Memory that either side of the module boundary may free, whatever compiler it was built with.
/// Returns null when memory is short.
[[nodiscard]] void* TaskAlloc(std::size_t bytes);
void TaskFree(void* memory);

}  // namespace ostrel::platform
