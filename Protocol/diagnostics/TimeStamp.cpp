#include "Protocol/diagnostics/TimeStamp.h"

#include <cstdio>

#include "platform/clock.h"

namespace ostrel {

std::string LocalTimeStamp() {
  const SYSTEMTIME now = platform::LocalTime();
  char text[64];
  std::snprintf(text, sizeof text, "[ %02d/%02d/%04d %02d:%02d:%02d.%03d ] ", now.wDay, now.wMonth, now.wYear, now.wHour,
                now.wMinute, now.wSecond, now.wMilliseconds);
  return text;
}

}  // namespace ostrel
