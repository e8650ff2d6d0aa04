// The meter's own calendar. A meter knows wall-clock time only, so its instants are seconds since 1970-01-01 00:00 as its
// display counts them, without any time zone.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ostrel::sim {

using MeterTime = std::int64_t;

inline constexpr MeterTime kHour = 3600;
inline constexpr MeterTime kDay = 24 * kHour;

/// From one time up to, not including, another.
struct Period {
  MeterTime from = 0;
  MeterTime to = 0;
};

struct CivilTime {
  int year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int weekday = 4;  // 1 = Monday .. 7 = Sunday; follows from the date
};

/// The instant of a date and time; months outside 1..12 run over into the neighbouring years.
[[nodiscard]] MeterTime FromCivil(const CivilTime& civil);
[[nodiscard]] CivilTime ToCivil(MeterTime time);

/// False when the month or the day is none; the time of day is not looked at.
[[nodiscard]] bool IsDate(const CivilTime& civil);
[[nodiscard]] int DaysInMonth(int year, int month);
[[nodiscard]] MeterTime StartOfDay(MeterTime time);
/// Starts of the month and year `offset` periods after (or, negative, before) the one that holds the time.
[[nodiscard]] MeterTime StartOfMonth(MeterTime time, int offset = 0);
[[nodiscard]] MeterTime StartOfYear(MeterTime time, int offset = 0);

/// "2026-11-22T10:00:00", or nothing when the text is no date and time.
[[nodiscard]] std::optional<MeterTime> ParseMeterTime(std::string_view text);

}  // namespace ostrel::sim
