#include <time.h>

#include <chrono>
#include <thread>

#include "platform/system_clock.h"

namespace ostrel::platform {
namespace {

std::int64_t Milliseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace

std::uint32_t SystemTickCount() { return static_cast<std::uint32_t>(Milliseconds(CLOCK_MONOTONIC)); }

std::int64_t SystemUtcMilliseconds() { return Milliseconds(CLOCK_REALTIME); }

void SystemSleep(std::uint32_t milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

}  // namespace ostrel::platform
