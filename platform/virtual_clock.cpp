#include "platform/virtual_clock.h"

namespace ostrel::platform {
namespace {

/// The time orders nothing: threads that look at it stay as free of each other as with the system's clock.
constexpr auto kUnordered = std::memory_order_relaxed;

}  // namespace

VirtualClock::VirtualClock(std::int64_t utcMilliseconds, std::uint32_t tickCount)
    : start_utc_(utcMilliseconds), start_tick_(tickCount) {}

std::uint32_t VirtualClock::TickCount() { return start_tick_ + static_cast<std::uint32_t>(elapsed_.load(kUnordered)); }

std::int64_t VirtualClock::UtcMilliseconds() { return start_utc_.load(kUnordered) + elapsed_.load(kUnordered); }

void VirtualClock::Sleep(std::uint32_t milliseconds) {
  const std::int64_t end = elapsed_.load(kUnordered) + milliseconds;
  if (end <= limit_.load(kUnordered)) return MoveTo(end);
  SleepToLimit(end);
}

void VirtualClock::MoveTo(std::int64_t end) {
  std::int64_t now = elapsed_.load(kUnordered);
  while (now < end && !elapsed_.compare_exchange_weak(now, end, kUnordered)) {
  }
}

void VirtualClock::SleepToLimit(std::int64_t end) {
  std::unique_lock lock(mutex_);
  while (end > limit_.load(kUnordered) && Elapsed() < end) {
    MoveTo(limit_.load(kUnordered));
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, [&, seen = changes_] { return changes_ != seen; });
  }
  MoveTo(end);
}

void VirtualClock::Advance(std::int64_t milliseconds) {
  const std::lock_guard lock(mutex_);
  elapsed_.fetch_add(milliseconds, kUnordered);
  WakeSleepers();
}

void VirtualClock::SetUtcMilliseconds(std::int64_t utcMilliseconds) { start_utc_.store(utcMilliseconds - Elapsed(), kUnordered); }

std::int64_t VirtualClock::Elapsed() { return elapsed_.load(kUnordered); }

void VirtualClock::SetLimit(std::int64_t elapsedMilliseconds) {
  const std::lock_guard lock(mutex_);
  limit_.store(elapsedMilliseconds, kUnordered);
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
