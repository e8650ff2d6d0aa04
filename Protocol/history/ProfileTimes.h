// Where a load-profile record lies in time and in its hour block. A record is stamped with the end of its interval and
// kept in the block of the hour in which the interval began.
#pragma once

#include <cstdint>

#include "Protocol/history/HistoryTime.h"
#include "Protocol/model/CalendarTime.h"

namespace ostrel {

struct RecordPosition {
  SYSTEMTIME hour{};
  std::uint32_t slot = 0;
};

/// Moves a time minute by minute, on or back, to a whole multiple of the period. Seconds are kept; milliseconds are lost
/// when a minute was moved. On never shows a time before the given one, whatever the clocks do. The time is written only when
/// the outcome is Done.
[[nodiscard]] TimeOutcome AlignForward(FILETIME& time, std::uint32_t period);
[[nodiscard]] TimeOutcome AlignBack(FILETIME& time, std::uint32_t period);

/// The first time of a walk: the whole minute, moved back to a multiple of the period.
[[nodiscard]] TimeOutcome FirstRecord(FILETIME& time, std::uint32_t period);

/// Hour block and slot of the record stamped `time`.
[[nodiscard]] TimeOutcome LocateRecord(const FILETIME& time, std::uint32_t period, RecordPosition& position);

/// The time a span later by the clock on the wall.
[[nodiscard]] TimeOutcome MoveOn(FILETIME& time, TimeSpan span);

}  // namespace ostrel
