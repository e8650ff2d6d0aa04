// The threads of the campaign: fibres of which exactly one runs. At every wait - sleep, lock, join - the seed decides who
// goes on; time passes when all wait. So a seed gives the same interleaving every time, on every compiler, and ten thousand
// hand-overs take less than a second. platform/'s threads, locks and clock are these while the campaign runs (System.cpp).
#pragma once

#include <functional>
#include <memory>

#include "platform/clock.h"
#include "simulator/Random.h"
#include "tests/campaign/Campaign.h"

namespace ostrel::campaign {

struct Fibre;

/// The computer's clocks belong to it. The wall clock can be wrong; the true time is that of the meters.
class Scheduler final : public platform::Clock {
 public:
  using Body = std::function<void()>;

  Scheduler(std::uint64_t seed, std::int64_t startUtcMs, std::uint32_t startTick);
  ~Scheduler() override;

  /// A new fibre; the caller goes on. Whoever starts one joins it.
  Fibre* Start(std::string name, Body body);
  void Join(Fibre* fibre);
  [[nodiscard]] std::uint32_t Self() const;  // 1 is the one that made the scheduler
  [[nodiscard]] int& OwnWorkDepth();
  [[nodiscard]] std::size_t Alive() const { return fibres_.size(); }

  void Wait(std::int64_t milliseconds);
  /// Milliseconds since the start.
  [[nodiscard]] std::int64_t Elapsed() const { return elapsed_; }
  /// Those of them in which the computer was awake.
  [[nodiscard]] std::int64_t Awake() const { return elapsed_ - suspended_; }
  [[nodiscard]] std::int64_t TrueUtcMs() const { return startUtcMs_ + elapsed_; }
  void Suspend(std::int64_t milliseconds);
  std::int64_t wrongByMs = 0;  // the wall clock

  std::uint32_t TickCount() override;
  std::int64_t UtcMilliseconds() override { return TrueUtcMs() + wrongByMs; }
  void Sleep(std::uint32_t milliseconds) override { Wait(milliseconds); }

  // Locks are known by their address, re-entrant, and served in the order of arrival.
  void Enter(const void* lock);
  void Leave(const void* lock);
  [[nodiscard]] bool Holds(const void* lock);
  [[nodiscard]] std::uint64_t Waiters(const void* lock);
  /// Called by whoever leaves this lock for good, while he still holds it.
  void Watch(const void* lock, Body leaving) { watches_.emplace_back(lock, std::move(leaving)); }

  /// What has been decided so far, folded into one number.
  [[nodiscard]] std::uint64_t Trace() const { return trace_; }
  void Note(std::uint64_t what) { trace_ = (trace_ ^ what) * 0x100000001B3U; }

 private:
  struct Held {
    const void* lock;
    Fibre* owner;
    std::uint32_t depth;
    std::vector<Fibre*> waiters;
  };

  [[nodiscard]] Held* Find(const void* lock);
  void Pause();
  void Look();
  void Block(const void* awaits);
  void SwitchToNext();
  [[nodiscard]] Fibre* Choose();
  [[nodiscard]] std::string DescribeWaits();
  static void Run(unsigned low, unsigned high);

  sim::Random random_;
  std::int64_t startUtcMs_;
  std::uint32_t startTick_;
  std::int64_t elapsed_ = 0;
  std::int64_t suspended_ = 0;
  std::uint64_t trace_ = 0xCBF29CE484222325U;
  std::uint32_t lastId_ = 0;
  std::uint32_t looks_ = 0;  // since time last passed
  std::vector<std::unique_ptr<Fibre>> fibres_;
  Fibre* running_ = nullptr;
  std::vector<Held> held_;
  std::vector<std::pair<const void*, Body>> watches_;
};

/// The one of the seed that runs now, or null.
inline Scheduler* scheduler = nullptr;

}  // namespace ostrel::campaign
