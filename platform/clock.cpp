#include "platform/clock.h"

#include <atomic>
#include <chrono>

#include "platform/local_time.h"
#include "platform/system_clock.h"

namespace ostrel::platform {
namespace {

/// 1970-01-01 in FILETIME's 100 ns units since 1601.
constexpr std::int64_t kUnixEpochTicks = 116'444'736'000'000'000;
constexpr std::int64_t kTicksPerMillisecond = 10'000;

std::atomic<Clock*> replacement{nullptr};

Clock* Replacement() { return replacement.load(std::memory_order_acquire); }

std::int64_t WholeSeconds(std::int64_t milliseconds) {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::milliseconds(milliseconds)).count();
}

}  // namespace

void ReplaceClock(Clock* clock) { replacement.store(clock, std::memory_order_release); }

std::uint32_t TickCount() {
  Clock* const clock = Replacement();
  return clock ? clock->TickCount() : SystemTickCount();
}

std::int64_t UtcMilliseconds() {
  Clock* const clock = Replacement();
  return clock ? clock->UtcMilliseconds() : SystemUtcMilliseconds();
}

std::int64_t UtcSeconds() { return WholeSeconds(UtcMilliseconds()); }

FILETIME UtcFileTime() {
  const auto ticks = static_cast<std::uint64_t>(UtcMilliseconds() * kTicksPerMillisecond + kUnixEpochTicks);
  return {.dwLowDateTime = static_cast<DWORD>(ticks), .dwHighDateTime = static_cast<DWORD>(ticks >> 32)};
}

SYSTEMTIME LocalTime() {
  const std::int64_t now = UtcMilliseconds();
  const std::int64_t seconds = WholeSeconds(now);
  const std::optional<LocalFields> local = LocalFromSeconds(seconds);
  if (!local) return {};
  return {.wYear = static_cast<WORD>(local->year),
          .wMonth = static_cast<WORD>(local->month),
          .wDayOfWeek = static_cast<WORD>(local->day_of_week),
          .wDay = static_cast<WORD>(local->day),
          .wHour = static_cast<WORD>(local->hour),
          .wMinute = static_cast<WORD>(local->minute),
          .wSecond = static_cast<WORD>(local->second),
          .wMilliseconds = static_cast<WORD>(now - seconds * 1000)};
}

void Sleep(std::uint32_t milliseconds) {
  Clock* const clock = Replacement();
  clock ? clock->Sleep(milliseconds) : SystemSleep(milliseconds);
}

}  // namespace ostrel::platform
