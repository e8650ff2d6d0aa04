// The threads of the campaign: fibres of which exactly one runs. At every wait - sleep, lock, join - the seed decides who
// goes on; time passes when all wait. So a seed gives the same interleaving every time, on every compiler, and ten thousand
// hand-overs take less than a second. platform/'s threads, locks and clock are these while the campaign runs (System.cpp).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "simulator/Random.h"

namespace ostrel::campaign {

struct Fibre;

class Scheduler {
 public:
  using Body = std::function<void()>;

  explicit Scheduler(std::uint64_t seed);
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;
  ~Scheduler();

  /// The one that runs now, or null.
  static Scheduler* Current();

  /// A new fibre; the caller goes on. Whoever starts one joins it.
  Fibre* Start(std::string name, Body body);
  void Join(Fibre* fibre);
  [[nodiscard]] std::uint32_t Self() const;  // 1 is the one that made the scheduler
  [[nodiscard]] std::size_t Alive() const { return fibres_.size(); }

  void Sleep(std::int64_t milliseconds);
  /// Somebody else may go on here.
  void Pause();
  /// Milliseconds since the start.
  [[nodiscard]] std::int64_t Elapsed() const { return elapsed_; }
  /// Those of them in which the computer was awake.
  [[nodiscard]] std::int64_t Awake() const { return elapsed_ - suspended_; }
  void Suspend(std::int64_t milliseconds) {
    elapsed_ += milliseconds;
    suspended_ += milliseconds;
  }
  /// A look at the clock. Whoever does nothing else for ever hangs.
  void Look();

  // Locks are known by their address, re-entrant, and served in the order of arrival.
  void Enter(const void* lock);
  void Leave(const void* lock);
  [[nodiscard]] bool Holds(const void* lock) const;
  [[nodiscard]] std::uint64_t Waiters(const void* lock) const;
  /// Called by whoever leaves this lock for good, while he still holds it.
  void Watch(const void* lock, Body leaving);

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
  [[nodiscard]] const Held* Find(const void* lock) const;
  void SwitchToNext();
  [[nodiscard]] Fibre* Choose();
  [[nodiscard]] std::string DescribeWaits() const;
  static void Run(unsigned low, unsigned high);

  sim::Random random_;
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

}  // namespace ostrel::campaign
