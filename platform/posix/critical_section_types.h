#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace ostrel::platform {

/// A ticket lock: arrivals draw numbers and are served in that order.
struct CriticalSectionState {
  std::mutex mutex;
  std::condition_variable turn;
  std::uint64_t nextTicket = 0;
  std::uint64_t served = 0;
  std::uint32_t depth = 0;
  std::thread::id owner;
};

}  // namespace ostrel::platform
