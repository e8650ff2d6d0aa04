// Times of history. A FILETIME that host and plug-in exchange is the meter's wall clock written as if it were UTC; the
// calendar arithmetic in between takes the fields as local time of the computer.
#pragma once

#include <cstdint>

#include "Protocol/model/CalendarTime.h"
#include "platform/variant.h"

namespace ostrel {

/// Why a time could not be worked out. The two failures end an operation differently: one that no calendar has (a start in
/// 1601) fails it, one that merely cannot be written as fields or FILETIME ends it with what it has.
enum class TimeOutcome : std::uint8_t { Done, NotConvertible, NotConstructible };

/// The operation's result that a time step leads to.
[[nodiscard]] constexpr std::uint32_t ResultOf(TimeOutcome outcome) { return outcome == TimeOutcome::NotConstructible ? 0 : 1; }

/// 100 ns since 1601.
[[nodiscard]] constexpr std::uint64_t Ticks(const FILETIME& time) {
  return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

[[nodiscard]] constexpr SYSTEMTIME StartOfHour(SYSTEMTIME fields) {
  fields.wMinute = 0;
  fields.wSecond = 0;
  fields.wMilliseconds = 0;
  return fields;
}

[[nodiscard]] constexpr SYSTEMTIME StartOfDay(SYSTEMTIME fields) {
  fields = StartOfHour(fields);
  fields.wHour = 0;
  return fields;
}

[[nodiscard]] constexpr bool SameHour(const SYSTEMTIME& left, const SYSTEMTIME& right) {
  return left.wYear == right.wYear && left.wMonth == right.wMonth && left.wDay == right.wDay && left.wHour == right.wHour;
}

/// The wall clock of an instant as a FILETIME; false when it cannot be converted.
[[nodiscard]] inline bool ToFileTime(const CalendarTime& instant, FILETIME& time) {
  SYSTEMTIME fields{};
  return instant.ToFields(fields) && platform::FieldsToFileTime(fields, time);
}

}  // namespace ostrel
