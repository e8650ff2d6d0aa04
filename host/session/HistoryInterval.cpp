#include "host/session/HistoryInterval.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>

#include "host/session/Failure.h"
#include "platform/clock.h"
#include "platform/local_time.h"

namespace ostrel::host {
namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
// What the calendars of all parts can hold.
constexpr int kFirstYear = 1970;
constexpr int kLastYear = 3000;

WallTime FromFields(const std::chrono::year_month_day& date, int hour, int minute, int second) {
  const auto days = std::chrono::sys_days(date).time_since_epoch();
  return std::chrono::seconds(days).count() + hour * 3600 + minute * 60 + second;
}

WallTime WallTimeOf(const platform::LocalFields& fields) {
  const std::chrono::year_month_day date(std::chrono::year(fields.year), std::chrono::month(static_cast<unsigned>(fields.month)),
                                         std::chrono::day(static_cast<unsigned>(fields.day)));
  return FromFields(date, fields.hour, fields.minute, fields.second);
}

platform::LocalFields FieldsOf(WallTime time) {
  const auto days = std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(std::chrono::seconds(time)));
  const std::chrono::year_month_day date(days);
  const auto rest = static_cast<int>(time - std::chrono::seconds(days.time_since_epoch()).count());
  return {.year = static_cast<int>(date.year()),
          .month = static_cast<int>(static_cast<unsigned>(date.month())),
          .day = static_cast<int>(static_cast<unsigned>(date.day())),
          .hour = rest / 3600,
          .minute = rest / 60 % 60,
          .second = rest % 60};
}

}  // namespace

WallTime ParseWallTime(const std::string& option, const std::string& text) {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  char separator = 'T';
  int dateEnd = -1;
  int minuteEnd = -1;
  int secondEnd = -1;
  std::sscanf(text.c_str(), "%4d-%2d-%2d%n%c%2d:%2d%n:%2d%n", &year, &month, &day, &dateEnd, &separator, &hour, &minute,
              &minuteEnd, &second, &secondEnd);
  const int size = static_cast<int>(text.size());
  const bool complete = dateEnd == size || minuteEnd == size || secondEnd == size;
  const std::chrono::year_month_day date(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  const bool inRange = date.ok() && year >= kFirstYear && year <= kLastYear && hour >= 0 && hour <= 23 && minute >= 0 &&
                       minute <= 59 && second >= 0 && second <= 59 && (separator == 'T' || separator == ' ');
  if (!complete || !inRange) {
    throw Failure(kExitUsage, fmt::format("{}: \"{}\" is no time such as 2026-11-22T10:30 or 2026-11-22", option, text));
  }
  return FromFields(date, hour, minute, second);
}

std::string WallTimeText(WallTime time) {
  const platform::LocalFields shown = FieldsOf(time);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", shown.year, shown.month, shown.day, shown.hour, shown.minute,
                     shown.second);
}

WallTime ComputersWallTime() {
  const std::int64_t utc = platform::UtcMilliseconds() / 1000;
  const auto local = platform::LocalFromSeconds(utc);
  return local ? WallTimeOf(*local) : utc;
}

bool ClockChangesBetween(WallTime from, WallTime to) {
  const auto first = platform::SecondsFromLocal(FieldsOf(from));
  const auto last = platform::SecondsFromLocal(FieldsOf(to));
  return !first || !last || *last - *first != to - from;
}

bool IsInRepeatedHour(WallTime time) {
  const auto instant = platform::SecondsFromLocal(FieldsOf(time));
  if (!instant) return false;
  const auto shows = [time](std::int64_t seconds) {
    const auto local = platform::LocalFromSeconds(seconds);
    return local && WallTimeOf(*local) == time;
  };
  return shows(*instant - kHourSeconds) || shows(*instant + kHourSeconds);
}

FILETIME ToFileTime(WallTime time) {
  const auto ticks = static_cast<std::uint64_t>((time + kSecondsFrom1601To1970) * kTicksPerSecond);
  return {.dwLowDateTime = static_cast<std::uint32_t>(ticks), .dwHighDateTime = static_cast<std::uint32_t>(ticks >> 32U)};
}

WallTime FromFileTime(const FILETIME& time) {
  const std::uint64_t ticks = std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
  return static_cast<WallTime>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
}

}  // namespace ostrel::host
