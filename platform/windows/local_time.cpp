#include "platform/local_time_fields.h"

namespace ostrel::platform {
namespace {

constexpr std::int64_t kHour = 3'600;

bool Convert(std::int64_t seconds, tm& local) {
  const __time64_t time = seconds;
  return _localtime64_s(&local, &time) == 0;
}

}  // namespace

std::optional<std::int64_t> SecondsFromLocal(const LocalFields& fields) {
  if (fields.year < kFirstYear || fields.year > kLastYear) return std::nullopt;
  tm standard = ToRuntime(fields);
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
  return FromRuntime(local);
}

}  // namespace ostrel::platform
