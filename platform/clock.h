// All time comes through here: the tick count for pauses and holds, UTC and local time for timestamps. A test puts
// another clock in, and thirty days of polling run in seconds.
#pragma once

#include <cstdint>

#include "platform/variant.h"

namespace ostrel::platform {

class Clock {
 public:
  virtual ~Clock() = default;
  /// Milliseconds since some start, wrapping at 2^32.
  virtual std::uint32_t TickCount() = 0;
  /// Milliseconds since 1970-01-01 UTC.
  virtual std::int64_t UtcMilliseconds() = 0;
  virtual void Sleep(std::uint32_t milliseconds) = 0;
};

/// Puts another clock in for this module; null restores the system's. Not while another thread reads the time.
void ReplaceClock(Clock* clock);

[[nodiscard]] std::uint32_t TickCount();
[[nodiscard]] std::int64_t UtcMilliseconds();
[[nodiscard]] std::int64_t UtcSeconds();
[[nodiscard]] FILETIME UtcFileTime();
/// The computer's wall clock with milliseconds, in its time zone.
[[nodiscard]] SYSTEMTIME LocalTime();
void Sleep(std::uint32_t milliseconds);

}  // namespace ostrel::platform
