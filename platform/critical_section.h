// A re-entrant lock that two modules can share by address. First come, first served: the poll thread releases the line
// between two tags and takes it again at once, and a history thread that waits must get it in between.
#pragma once

#if defined(_WIN32)
#include "platform/windows/critical_section_types.h"
#else
#include "platform/posix/critical_section_types.h"
#endif

namespace ostrel::platform {

class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  /// Waits for the lock; the thread that holds it may enter again.
  void Enter();
  /// Leaves once; the lock is free after as many Leave as Enter.
  void Leave();

 private:
  CriticalSectionState state_;
};

class [[nodiscard]] CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(CriticalSection& section) : section_(section) { section_.Enter(); }
  ~CriticalSectionGuard() { section_.Leave(); }
  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  CriticalSection& section_;
};

}  // namespace ostrel::platform
