// The system's own time, which clock.cpp asks when no other clock is in its place.
#pragma once

#include <cstdint>

namespace ostrel::platform {

[[nodiscard]] std::uint32_t SystemTickCount();
[[nodiscard]] std::int64_t SystemUtcMilliseconds();
void SystemSleep(std::uint32_t milliseconds);

}  // namespace ostrel::platform
