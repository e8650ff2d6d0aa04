// Holds the serial line, through the object's own operations.
#pragma once

#include "Protocol/object/CProtocol.h"

namespace ostrel {

class [[nodiscard]] LineGuard {
 public:
  explicit LineGuard(CProtocol& protocol) : protocol_(protocol) { protocol_.LockExchange(); }
  ~LineGuard() { protocol_.UnlockExchange(); }
  LineGuard(const LineGuard&) = delete;
  LineGuard& operator=(const LineGuard&) = delete;

 private:
  CProtocol& protocol_;
};

}  // namespace ostrel
