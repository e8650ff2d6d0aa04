#include "simulator/MeterClock.h"

#include <algorithm>

#include "platform/local_time.h"

namespace ostrel::sim {
namespace {

/// Seconds that the computer's wall clock is ahead of UTC at an instant.
std::int64_t ZoneSeconds(std::int64_t utcSeconds) {
  const auto local = platform::LocalFromSeconds(utcSeconds);
  if (!local) return 0;
  return FromCivil({local->year, local->month, local->day, local->hour, local->minute, local->second}) - utcSeconds;
}

/// The same in winter: no zone has summer time in both January and July.
std::int64_t WinterZoneSeconds(std::int64_t utcSeconds) {
  const int year = ToCivil(utcSeconds).year;
  return std::min(ZoneSeconds(FromCivil({.year = year})), ZoneSeconds(FromCivil({.year = year, .month = 7})));
}

std::int64_t FloorSeconds(std::int64_t milliseconds) {
  return milliseconds >= 0 ? milliseconds / 1000 : (milliseconds - 999) / 1000;
}

}  // namespace

MeterClock::MeterClock(const MeterSpec& spec)
    : wall_(spec.summerTime),
      frozen_at_(spec.frozenAt),
      offset_ms_(std::int64_t{1000} * spec.offsetSeconds),
      drift_ppm_(spec.driftPpm) {}

MeterTime MeterClock::Now(std::int64_t utcMs) { return FloorSeconds(Milliseconds(utcMs)); }

std::int64_t MeterClock::Milliseconds(std::int64_t utcMs) {
  if (frozen_at_) return wall_.TimeOf(*frozen_at_) * 1000 + offset_ms_;
  if (!started_ms_) started_ms_ = utcMs;
  return utcMs + ZoneNow(utcMs) * 1000 + offset_ms_ + (utcMs - *started_ms_) * drift_ppm_ / 1000000;
}

std::int64_t MeterClock::ZoneNow(std::int64_t utcMs) const {
  if (wall_.HasSummerTime()) return WinterZoneSeconds(FloorSeconds(utcMs));
  return held_zone_seconds_.value_or(ZoneSeconds(FloorSeconds(utcMs)));
}

bool MeterClock::Correct(int hour, int minute, int second, std::int64_t utcMs) {
  const MeterTime now = wall_.Shown(Now(utcMs));
  if (corrected_day_ == StartOfDay(now)) return false;
  MeterTime target = StartOfDay(now) + hour * 3600 + minute * 60 + second;
  if (target - now > kDay / 2) target -= kDay;
  if (now - target > kDay / 2) target += kDay;
  if (target - now > kCorrectionReach || now - target > kCorrectionReach) return false;
  Set(target, utcMs);
  corrected_day_ = StartOfDay(target);
  return true;
}

void MeterClock::Set(MeterTime shown, std::int64_t utcMs) {
  offset_ms_ += wall_.TimeOf(shown) * 1000 - Milliseconds(utcMs);
  corrected_day_.reset();
}

void MeterClock::InhibitTransitions(bool inhibit, std::int64_t utcMs) {
  if (inhibit && !held_zone_seconds_) {
    wall_.Hold(Now(utcMs));
    held_zone_seconds_ = ZoneSeconds(FloorSeconds(utcMs));
  } else if (!inhibit) {
    wall_.Release();
    held_zone_seconds_.reset();
  }
}

}  // namespace ostrel::sim
