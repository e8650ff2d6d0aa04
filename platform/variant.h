// VARIANT, BSTR, FILETIME and SYSTEMTIME: the value types of OPC. On Windows the system's own.
#pragma once

#include <cstdint>

#include "platform/com.h"
#if !defined(_WIN32)
#include "platform/posix/variant_types.h"
#endif

namespace ostrel::platform {

/// A new BSTR from text of `length` characters, or null when memory is short. Free it with FreeString.
[[nodiscard]] BSTR AllocString(const OLECHAR* text, std::size_t length);

/// Frees a BSTR; null is allowed.
void FreeString(BSTR text);

/// Characters in a BSTR; 0 for null.
[[nodiscard]] std::size_t StringLength(BSTR text);

/// FILETIME (100 ns since 1601, UTC) to calendar fields without any time-zone step. False for times past year 30827.
[[nodiscard]] bool FileTimeToFields(const FILETIME& time, SYSTEMTIME& fields);

/// Calendar fields to FILETIME without any time-zone step; the day of week is ignored. False for an impossible date or time.
[[nodiscard]] bool FieldsToFileTime(const SYSTEMTIME& fields, FILETIME& time);

}  // namespace ostrel::platform
