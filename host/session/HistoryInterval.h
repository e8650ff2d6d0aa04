// Times of the meters' wall clock as people write them, and intervals of them. The plug-in takes such a time as a FILETIME
// whose calendar fields are what the meter's display shows, without any time zone.
#pragma once

#include <cstdint>
#include <string>

#include "platform/variant.h"

namespace ostrel::host {

/// Seconds since 1970-01-01 00:00 of the wall clock.
using WallTime = std::int64_t;

inline constexpr WallTime kMinuteSeconds = 60;
inline constexpr WallTime kHourSeconds = 3600;
inline constexpr WallTime kDaySeconds = 86400;

/// "2026-11-22", "2026-11-22T10:30" or "2026-11-22T10:30:00", a blank in place of the T too. Throws Failure (usage).
[[nodiscard]] WallTime ParseWallTime(const std::string& option, const std::string& text);
/// "2026-11-22T10:30:00"
[[nodiscard]] std::string WallTimeText(WallTime time);
/// What the computer's clock shows.
[[nodiscard]] WallTime ComputersWallTime();
/// Whether the computer's clock changes to summer time or back between two times that it shows.
[[nodiscard]] bool ClockChangesBetween(WallTime from, WallTime to);

/// Whether the computer's clock shows this time twice, because it goes back to winter time that night. Of the two records that a
/// meter has then the earlier one is listed.
[[nodiscard]] bool IsInRepeatedHour(WallTime time);

[[nodiscard]] FILETIME ToFileTime(WallTime time);
[[nodiscard]] WallTime FromFileTime(const FILETIME& time);

/// The end does not belong to it, except where both are the same: then it is that one time.
struct WallInterval {
  WallTime from = 0;
  WallTime to = 0;
};

}  // namespace ostrel::host
