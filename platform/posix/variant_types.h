// OLE value types for systems that have none. A VARIANT is 16 bytes with its data at byte 8, as in the Windows builds.
#pragma once

#include <cstdint>

#include "platform/posix/com_types.h"

using VARTYPE = std::uint16_t;
enum : VARTYPE { VT_EMPTY = 0, VT_I2 = 2, VT_I4 = 3, VT_R4 = 4, VT_R8 = 5, VT_BSTR = 8, VT_BOOL = 11, VT_I1 = 16, VT_UI1 = 17 };

struct VARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    std::int64_t llVal;  // first, as on Windows: VARIANT{} clears the whole value by it
    char cVal;
    BYTE bVal;
    std::int16_t iVal;
    std::int16_t boolVal;
    LONG lVal;
    float fltVal;
    double dblVal;
    BSTR bstrVal;
    std::uint64_t ullVal;
  };
};
static_assert(sizeof(VARIANT) == 16);

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};
