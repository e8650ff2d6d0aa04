// The offsets in force a day before and a day after decide, and nothing else: mktime would let its last result weigh in.
#include <algorithm>
#include <mutex>

#include "platform/local_time_fields.h"

namespace ostrel::platform {
namespace {

constexpr std::int64_t kDay = 86'400;

/// The zone may be changed while the program runs. The run-time locks its own tables; the order that this lock adds is one
/// that ThreadSanitizer can see.
void FollowZone() {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> guard(mutex);
  tzset();
}

bool Convert(std::int64_t seconds, tm& local) {
  const time_t time = seconds;
  return localtime_r(&time, &local) != nullptr;
}

/// Seconds that local time is ahead of UTC at an instant.
std::int64_t OffsetAt(std::int64_t seconds) {
  tm local{};
  return Convert(seconds, local) ? local.tm_gmtoff : 0;
}

std::int64_t Resolve(std::int64_t wallClock) {
  const std::int64_t before = OffsetAt(wallClock - kDay);
  const std::int64_t after = OffsetAt(wallClock + kDay);
  const std::int64_t byBefore = wallClock - before;
  const std::int64_t byAfter = wallClock - after;
  const bool beforeHolds = OffsetAt(byBefore) == before;
  const bool afterHolds = OffsetAt(byAfter) == after;
  if (beforeHolds && afterHolds) return std::max(byBefore, byAfter);
  if (!beforeHolds && !afterHolds) return std::min(byBefore, byAfter);
  return beforeHolds ? byBefore : byAfter;
}

}  // namespace

std::optional<std::int64_t> SecondsFromLocal(const LocalFields& fields) {
  if (fields.year < kFirstYear || fields.year > kLastYear) return std::nullopt;
  tm wallClock = ToRuntime(fields);
  FollowZone();
  const std::int64_t seconds = Resolve(timegm(&wallClock));
  if (seconds < 0 || seconds > kLastSecond) return std::nullopt;
  return seconds;
}

std::optional<LocalFields> LocalFromSeconds(std::int64_t seconds) {
  if (seconds < 0 || seconds > kLastSecond) return std::nullopt;
  FollowZone();
  tm local{};
  if (!Convert(seconds, local)) return std::nullopt;
  return FromRuntime(local);
}

}  // namespace ostrel::platform
