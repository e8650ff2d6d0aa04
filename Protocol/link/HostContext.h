// What the host lends to the plug-in for the life of a channel. The host owns every object in it; provider and log file
// may be absent.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/critical_section.h"
#include "platform/layout.h"

namespace ostrel {

class CLogFile;
class DebugTrace;
struct IObjectProvider;

struct HostContext {
  std::uint32_t hostWord0_ = 0;
  /// Guards value, timestamp and quality of tags. Last in the lock order (PollLock, ExchangeLock, this one): the host calls
  /// nothing of the plug-in while it holds it.
  platform::CriticalSection TagLock;
  std::uint32_t hostWord28_ = 0;
  std::uint32_t ClockCorrectionDays = 0;  // 0 switches clock correction off
  std::uint32_t hostWords36_[2] = {};
  IObjectProvider* ObjectProvider = nullptr;
  CLogFile* LogFile = nullptr;
  void* hostWords52_[3] = {};
  DebugTrace* Trace = nullptr;
};

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#endif
static_assert(!platform::kHostLayout || (offsetof(HostContext, TagLock) == 4 && offsetof(HostContext, ClockCorrectionDays) == 32 &&
                                         offsetof(HostContext, ObjectProvider) == 44 && offsetof(HostContext, LogFile) == 48 &&
                                         offsetof(HostContext, Trace) == 64));
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace ostrel
