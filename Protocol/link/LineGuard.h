// Holds the serial line, through the object's own operations.
#pragma once

#include "Protocol/link/Line.h"

namespace ostrel {

class [[nodiscard]] LineGuard {
 public:
  explicit LineGuard(Line& line) : line_(line) { line_.LockExchange(); }
  ~LineGuard() { line_.UnlockExchange(); }
  LineGuard(const LineGuard&) = delete;
  LineGuard& operator=(const LineGuard&) = delete;

 private:
  Line& line_;
};

}  // namespace ostrel
