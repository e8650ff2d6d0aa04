// The meter's clock: it follows the computer's wall clock, or with summer time of its own the computer's winter time, with
// an offset and a drift; it takes small corrections once a day and any setting.
#pragma once

#include <cstdint>
#include <optional>

#include "simulator/MeterCalendar.h"
#include "simulator/MeterSpec.h"
#include "simulator/WallClock.h"

namespace ostrel::sim {

class MeterClock {
 public:
  explicit MeterClock(const MeterSpec& spec);

  [[nodiscard]] MeterTime Now(std::int64_t utcMs);
  /// What is shown for it.
  [[nodiscard]] const WallClock& Wall() const { return wall_; }

  /// Moves the clock to a time of day close to its own. False, with nothing changed, when that is too far, or when the
  /// clock was corrected on the same day before.
  [[nodiscard]] bool Correct(int hour, int minute, int second, std::int64_t utcMs);
  void Set(MeterTime shown, std::int64_t utcMs);

  /// While inhibited, the clock keeps the season it is in.
  void InhibitTransitions(bool inhibit, std::int64_t utcMs);

 private:
  [[nodiscard]] std::int64_t Milliseconds(std::int64_t utcMs);
  [[nodiscard]] std::int64_t ZoneNow(std::int64_t utcMs) const;

  WallClock wall_;
  std::optional<MeterTime> frozen_at_;  // as shown
  std::int64_t offset_ms_;
  std::int64_t drift_ppm_;
  std::optional<std::int64_t> started_ms_;         // UTC of the first look at the clock
  std::optional<std::int64_t> held_zone_seconds_;  // while transitions are inhibited
  std::optional<MeterTime> corrected_day_;
};

/// A correction moves the clock by two minutes at most. A master names a time two minutes off the one that it has read
/// a moment ago, so a few seconds of its way are granted on top.
inline constexpr MeterTime kCorrectionReach = 120 + 5;

}  // namespace ostrel::sim
