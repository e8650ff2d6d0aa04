#include "platform/system_clock.h"
#include "platform/windows/com_types.h"

namespace ostrel::platform {
namespace {

/// 1970-01-01 in FILETIME's 100 ns units since 1601.
constexpr std::int64_t kUnixEpochTicks = 116'444'736'000'000'000;
constexpr std::int64_t kTicksPerMillisecond = 10'000;

}  // namespace

std::uint32_t SystemTickCount() { return ::GetTickCount(); }

std::int64_t SystemUtcMilliseconds() {
  FILETIME now{};
  ::GetSystemTimeAsFileTime(&now);
  const std::int64_t ticks = static_cast<std::int64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
  return (ticks - kUnixEpochTicks) / kTicksPerMillisecond;
}

void SystemSleep(std::uint32_t milliseconds) { ::Sleep(milliseconds); }

}  // namespace ostrel::platform
