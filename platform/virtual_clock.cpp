#include "platform/virtual_clock.h"

#include <algorithm>

namespace ostrel::platform {

VirtualClock::VirtualClock(std::int64_t utcMilliseconds, std::uint32_t tickCount)
    : start_utc_(utcMilliseconds), start_tick_(tickCount) {}

std::uint32_t VirtualClock::TickCount() {
  const std::lock_guard lock(mutex_);
  return start_tick_ + static_cast<std::uint32_t>(elapsed_);
}

std::int64_t VirtualClock::UtcMilliseconds() {
  const std::lock_guard lock(mutex_);
  return start_utc_ + elapsed_;
}

void VirtualClock::Sleep(std::uint32_t milliseconds) {
  std::unique_lock lock(mutex_);
  const std::int64_t end = elapsed_ + milliseconds;
  while (end > limit_ && elapsed_ < end) {
    elapsed_ = std::max(elapsed_, limit_);
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, [&, seen = changes_] { return changes_ != seen; });
  }
  elapsed_ = std::max(elapsed_, end);
}

void VirtualClock::Advance(std::int64_t milliseconds) {
  const std::lock_guard lock(mutex_);
  elapsed_ += milliseconds;
  WakeSleepers();
}

void VirtualClock::SetUtcMilliseconds(std::int64_t utcMilliseconds) {
  const std::lock_guard lock(mutex_);
  start_utc_ = utcMilliseconds - elapsed_;
}

std::int64_t VirtualClock::Elapsed() {
  const std::lock_guard lock(mutex_);
  return elapsed_;
}

void VirtualClock::SetLimit(std::int64_t elapsedMilliseconds) {
  const std::lock_guard lock(mutex_);
  limit_ = elapsedMilliseconds;
  WakeSleepers();
}

void VirtualClock::ClearLimit() { SetLimit(std::numeric_limits<std::int64_t>::max()); }

void VirtualClock::WaitForLimit() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return waiting_ > 0; });
}

void VirtualClock::WakeSleepers() {
  ++changes_;
  waiting_ = 0;
  changed_.notify_all();
}

}  // namespace ostrel::platform
