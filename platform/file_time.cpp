// FILETIME and calendar fields: pure Gregorian arithmetic, the same on every system.
#include <chrono>

#include "platform/variant.h"

namespace ostrel::platform {
namespace {

namespace chr = std::chrono;

using Ticks = chr::duration<std::int64_t, std::ratio<1, 10'000'000>>;

constexpr int kFirstYear = 1601;
constexpr int kLastYear = 30827;
constexpr chr::sys_days kEpoch = chr::year(kFirstYear) / 1 / 1;

bool TimeOfDayIsPossible(const SYSTEMTIME& fields) {
  return fields.wHour < 24 && fields.wMinute < 60 && fields.wSecond < 60 && fields.wMilliseconds < 1000;
}

}  // namespace

bool FileTimeToFields(const FILETIME& time, SYSTEMTIME& fields) {
  const std::uint64_t count = static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
  if (count > static_cast<std::uint64_t>(INT64_MAX)) return false;
  const Ticks sinceEpoch(static_cast<std::int64_t>(count));
  const chr::days days = chr::floor<chr::days>(sinceEpoch);
  const chr::year_month_day date(kEpoch + days);
  if (static_cast<int>(date.year()) > kLastYear) return false;
  const chr::hh_mm_ss clock(chr::floor<chr::milliseconds>(sinceEpoch - days));
  fields = {.wYear = static_cast<WORD>(static_cast<int>(date.year())),
            .wMonth = static_cast<WORD>(static_cast<unsigned>(date.month())),
            .wDayOfWeek = static_cast<WORD>(chr::weekday(kEpoch + days).c_encoding()),
            .wDay = static_cast<WORD>(static_cast<unsigned>(date.day())),
            .wHour = static_cast<WORD>(clock.hours().count()),
            .wMinute = static_cast<WORD>(clock.minutes().count()),
            .wSecond = static_cast<WORD>(clock.seconds().count()),
            .wMilliseconds = static_cast<WORD>(clock.subseconds().count())};
  return true;
}

bool FieldsToFileTime(const SYSTEMTIME& fields, FILETIME& time) {
  const chr::year_month_day date(chr::year(fields.wYear), chr::month(fields.wMonth), chr::day(fields.wDay));
  if (fields.wYear < kFirstYear || fields.wYear > kLastYear || fields.wMonth > 12 || fields.wDay > 31) return false;
  if (!date.ok() || !TimeOfDayIsPossible(fields)) return false;
  const Ticks sinceEpoch = chr::sys_days(date) - kEpoch + chr::hours(fields.wHour) + chr::minutes(fields.wMinute) +
                           chr::seconds(fields.wSecond) + chr::milliseconds(fields.wMilliseconds);
  const auto count = static_cast<std::uint64_t>(sinceEpoch.count());
  time = {.dwLowDateTime = static_cast<DWORD>(count), .dwHighDateTime = static_cast<DWORD>(count >> 32)};
  return true;
}

}  // namespace ostrel::platform
