// A clock for tests: Sleep advances it and returns at once. A limit lets a test run a background thread up to an exact
// moment: the thread that would sleep past it waits there until the limit moves.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <mutex>

#include "platform/clock.h"

namespace ostrel::platform {

class VirtualClock : public Clock {
 public:
  explicit VirtualClock(std::int64_t utcMilliseconds, std::uint32_t tickCount = 0);

  std::uint32_t TickCount() override;
  std::int64_t UtcMilliseconds() override;
  void Sleep(std::uint32_t milliseconds) override;

  /// Moves both clocks on by hand.
  void Advance(std::int64_t milliseconds);
  /// Sets the wall clock without touching the tick count, as an operator would.
  void SetUtcMilliseconds(std::int64_t utcMilliseconds);
  /// Milliseconds that have passed on the tick count since construction, not wrapped.
  [[nodiscard]] std::int64_t Elapsed();

  /// Sleepers may not pass this elapsed time; they wait (in real time, without polling) until it moves. No limit at first.
  void SetLimit(std::int64_t elapsedMilliseconds);
  void ClearLimit();
  /// Waits until a sleeper stands at the limit.
  void WaitForLimit();

 private:
  /// Never back.
  void MoveTo(std::int64_t end);
  void SleepToLimit(std::int64_t end);
  /// Under the lock. Every sleeper looks again, and those that must still wait count themselves anew.
  void WakeSleepers();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<std::int64_t> start_utc_;
  const std::uint32_t start_tick_;
  std::atomic<std::int64_t> elapsed_{0};
  std::atomic<std::int64_t> limit_{std::numeric_limits<std::int64_t>::max()};
  int waiting_ = 0;
  std::uint64_t changes_ = 0;
};

}  // namespace ostrel::platform
