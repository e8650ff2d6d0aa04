// What a meter's display adds to the time that it counts by. Inside, time runs on in winter time all year, so that energies
// and profile hours never repeat; with summer time of its own the display is an hour ahead from the last Sunday of March to
// the last Sunday of October. Tariffs and the model follow the inner time.
#pragma once

#include <optional>

#include "simulator/MeterCalendar.h"

namespace ostrel::sim {

class WallClock {
 public:
  explicit WallClock(bool hasSummerTime = false) : has_summer_time_(hasSummerTime) {}

  [[nodiscard]] bool HasSummerTime() const { return has_summer_time_; }
  [[nodiscard]] bool IsSummer(MeterTime time) const;
  [[nodiscard]] MeterTime Shown(MeterTime time) const { return IsSummer(time) ? time + kHour : time; }
  /// The time at which the display shows this: the second of two, and for a time that it never shows the hour before.
  [[nodiscard]] MeterTime TimeOf(MeterTime shown) const { return IsSummer(shown) ? shown - kHour : shown; }

  /// When the day, month or year began that is `offset` after (or before) the shown one.
  [[nodiscard]] MeterTime DayStart(MeterTime time, int offset = 0) const;
  [[nodiscard]] MeterTime MonthStart(MeterTime time, int offset = 0) const;
  [[nodiscard]] MeterTime YearStart(MeterTime time, int offset = 0) const;

  /// From this time on the display keeps the season that it is in.
  void Hold(MeterTime time);
  void Release() { held_since_.reset(); }

 private:
  bool has_summer_time_;
  bool held_summer_ = false;
  std::optional<MeterTime> held_since_;
};

}  // namespace ostrel::sim
