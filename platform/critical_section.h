// Re-entrant locks that two modules can share by address.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#if defined(_WIN32)
#include "platform/windows/com_types.h"
#endif

namespace ostrel::platform {

/// First come, first served: the poll thread releases the line between two tags and takes it again at once, and a history
/// thread that waits must get it in between. Leaving wakes the next one alone, however many wait.
class FairSection {
 public:
  FairSection() = default;
  FairSection(const FairSection&) = delete;
  FairSection& operator=(const FairSection&) = delete;

  /// Waits for its turn; the thread that holds the lock may enter again.
  void Enter();
  /// Leaves once; the lock is free after as many Leave as Enter. By a thread that does not hold it, it does nothing.
  void Leave();
  /// Threads that wait for their turn now.
  [[nodiscard]] std::uint64_t Waiters();

 private:
  /// Lies on the stack of the thread that waits.
  struct Waiter {
    std::thread::id thread;
    std::condition_variable turn{};
    Waiter* next = nullptr;
  };

  void Append(Waiter& waiter);

  std::mutex mutex_;
  Waiter* first_ = nullptr;
  Waiter* last_ = nullptr;
  std::uint64_t waiting_ = 0;
  std::uint32_t depth_ = 0;
  std::thread::id owner_;
};

#if defined(_WIN32)
/// The system's own structure, 24 bytes in a 32-bit build: hosts place it inside their records and enter it themselves, so
/// the system's order of service holds.
class CriticalSection {
 public:
  CriticalSection() { ::InitializeCriticalSection(&state_); }
  ~CriticalSection() { ::DeleteCriticalSection(&state_); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Enter() { ::EnterCriticalSection(&state_); }
  void Leave() { ::LeaveCriticalSection(&state_); }

 private:
  CRITICAL_SECTION state_;
};
#else
using CriticalSection = FairSection;
#endif

template <class Section>
class [[nodiscard]] CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(Section& section) : section_(section) { section_.Enter(); }
  ~CriticalSectionGuard() { section_.Leave(); }
  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  Section& section_;
};

}  // namespace ostrel::platform
