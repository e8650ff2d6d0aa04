#include "platform/local_time.h"

#include <time.h>

namespace ostrel::platform {
namespace {

constexpr std::int64_t kHour = 3'600;
/// The end of year 3000 UTC: what the 64-bit time functions take.
constexpr std::int64_t kLastSecond = 32'535'215'999;

bool Convert(std::int64_t seconds, tm& local) {
  const __time64_t time = seconds;
  return _localtime64_s(&local, &time) == 0;
}

}  // namespace

std::optional<std::int64_t> SecondsFromLocal(const LocalFields& fields) {
  if (fields.year < 1970 || fields.year > 3000) return std::nullopt;
  tm standard{};
  standard.tm_year = fields.year - 1900;
  standard.tm_mon = fields.month - 1;
  standard.tm_mday = fields.day;
  standard.tm_hour = fields.hour;
  standard.tm_min = fields.minute;
  standard.tm_sec = fields.second;
  standard.tm_isdst = 0;
  std::int64_t seconds = _mktime64(&standard);
  tm local{};
  if (seconds < 0 || !Convert(seconds, local)) return std::nullopt;
  if (local.tm_isdst > 0) seconds -= kHour;
  if (seconds < 0 || seconds > kLastSecond) return std::nullopt;
  return seconds;
}

std::optional<LocalFields> LocalFromSeconds(std::int64_t seconds) {
  tm local{};
  if (seconds < 0 || seconds > kLastSecond || !Convert(seconds, local)) return std::nullopt;
  return LocalFields{.year = local.tm_year + 1900,
                     .month = local.tm_mon + 1,
                     .day = local.tm_mday,
                     .hour = local.tm_hour,
                     .minute = local.tm_min,
                     .second = local.tm_sec,
                     .day_of_week = local.tm_wday};
}

}  // namespace ostrel::platform
