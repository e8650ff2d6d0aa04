#include "Protocol/history/ProfileTimes.h"

#include <optional>

namespace ostrel {
namespace {

constexpr TimeSpan kMinute(0, 0, 1, 0);

struct Instant {
  TimeOutcome outcome;
  CalendarTime time{0};
};

Instant InstantOf(const SYSTEMTIME& fields) {
  const auto time = CalendarTime::FromFields(fields);
  if (!time) return {.outcome = TimeOutcome::NotConstructible};
  return {.outcome = TimeOutcome::Done, .time = *time};
}

Instant InstantOf(const FILETIME& time) {
  SYSTEMTIME fields{};
  if (!platform::FileTimeToFields(time, fields)) return {.outcome = TimeOutcome::NotConvertible};
  return InstantOf(fields);
}

/// Every hour has a minute 0, so this ends within an hour whatever the period is.
Instant Align(Instant instant, std::uint32_t period, TimeSpan step) {
  while (instant.outcome == TimeOutcome::Done) {
    const int minute = instant.time.GetMinute();
    if (minute < 0) return {.outcome = TimeOutcome::NotConvertible};
    if (static_cast<std::uint32_t>(minute) % period == 0) break;
    instant.time += step;
  }
  return instant;
}

TimeOutcome Write(const Instant& instant, FILETIME& time) {
  if (instant.outcome != TimeOutcome::Done) return instant.outcome;
  return ToFileTime(instant.time, time) ? TimeOutcome::Done : TimeOutcome::NotConvertible;
}

/// A time that stands on a multiple already keeps its milliseconds.
TimeOutcome WriteIfMoved(const Instant& given, const Instant& aligned, FILETIME& time) {
  if (aligned.outcome == TimeOutcome::Done && aligned.time == given.time) return TimeOutcome::Done;
  return Write(aligned, time);
}

constexpr std::uint64_t kTicksPerSecond = 10'000'000;

bool ShowsBefore(const Instant& instant, const FILETIME& time) {
  FILETIME shown{};
  return Write(instant, shown) == TimeOutcome::Done && Ticks(shown) / kTicksPerSecond < Ticks(time) / kTicksPerSecond;
}

}  // namespace

// A time inside the hour that summer time skips stands for one an hour before, and what is listed is not to lie before the
// asked start: then the first multiple behind that hour is the one.
TimeOutcome AlignForward(FILETIME& time, std::uint32_t period) {
  const Instant given = InstantOf(time);
  Instant aligned = Align(given, period, kMinute);
  while (ShowsBefore(aligned, time)) {
    aligned.time += kMinute;
    aligned = Align(aligned, period, kMinute);
  }
  return WriteIfMoved(given, aligned, time);
}

TimeOutcome AlignBack(FILETIME& time, std::uint32_t period) {
  const Instant given = InstantOf(time);
  return WriteIfMoved(given, Align(given, period, TimeSpan(-kMinute.Seconds())), time);
}

// The fields are read back in any case: a time inside the hour that summer time skips names no record, and would be
// listed with the value of the record an hour before it.
TimeOutcome FirstRecord(FILETIME& time, std::uint32_t period) {
  SYSTEMTIME fields{};
  if (!platform::FileTimeToFields(time, fields)) return TimeOutcome::NotConvertible;
  fields.wSecond = 0;
  return Write(Align(InstantOf(fields), period, TimeSpan(-kMinute.Seconds())), time);
}

TimeOutcome LocateRecord(const FILETIME& time, std::uint32_t period, RecordPosition& position) {
  const Instant end = InstantOf(time);
  if (end.outcome != TimeOutcome::Done) return end.outcome;
  SYSTEMTIME begin{};
  if (!(end.time - TimeSpan(0, 0, period, 0)).ToFields(begin)) return TimeOutcome::NotConvertible;
  position = {.hour = StartOfHour(begin), .slot = begin.wMinute / period};
  return TimeOutcome::Done;
}

TimeOutcome MoveOn(FILETIME& time, TimeSpan span) {
  Instant instant = InstantOf(time);
  instant.time += span;
  return Write(instant, time);
}

}  // namespace ostrel
