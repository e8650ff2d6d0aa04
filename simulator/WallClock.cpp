#include "simulator/WallClock.h"

namespace ostrel::sim {
namespace {

/// Both changes happen at this hour of winter time.
constexpr int kChangeHour = 2;

MeterTime LastSundayOf(int year, int month) {
  const CivilTime lastDay{.year = year, .month = month, .day = 31, .hour = kChangeHour};
  const MeterTime end = FromCivil(lastDay);
  return end - ToCivil(end).weekday % 7 * kDay;
}

bool IsEuropeanSummer(MeterTime time) {
  const int year = ToCivil(time).year;
  return time >= LastSundayOf(year, 3) && time < LastSundayOf(year, 10);
}

}  // namespace

bool WallClock::IsSummer(MeterTime time) const {
  if (!has_summer_time_) return false;
  return held_since_ && time >= *held_since_ ? held_summer_ : IsEuropeanSummer(time);
}

MeterTime WallClock::DayStart(MeterTime time, int offset) const { return TimeOf(StartOfDay(Shown(time)) + offset * kDay); }

MeterTime WallClock::MonthStart(MeterTime time, int offset) const { return TimeOf(StartOfMonth(Shown(time), offset)); }

MeterTime WallClock::YearStart(MeterTime time, int offset) const { return TimeOf(StartOfYear(Shown(time), offset)); }

void WallClock::Hold(MeterTime time) {
  held_summer_ = IsSummer(time);
  held_since_ = time;
}

}  // namespace ostrel::sim
