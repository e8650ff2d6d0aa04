// Memory that runs short once, at a chosen allocation. A program that uses it has its own operator new and its own task
// allocator; they differ from the usual ones only while an object of this class lives.
#pragma once

#include <cstdint>

namespace ostrel::test {

class FailingMemory {
 public:
  /// The n-th allocation from here on fails, whichever thread makes it; 1 is the next one, 0 none.
  explicit FailingMemory(std::int64_t nth);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  /// Allocations since construction, the failed one included.
  [[nodiscard]] static std::int64_t Count();

  /// Blocks of the whole program that have not been given back.
  [[nodiscard]] static std::int64_t Living();
};

/// While one lives, this thread's memory does not fail: what the host's side takes is not the plug-in's.
class SparedMemory {
 public:
  SparedMemory() { ++depth; }
  ~SparedMemory() { --depth; }
  SparedMemory(const SparedMemory&) = delete;
  SparedMemory& operator=(const SparedMemory&) = delete;

  static inline thread_local int depth = 0;
};

}  // namespace ostrel::test
