// What the poll thread works on: the meters, the lock of the device table, and the thread itself.
#pragma once

#include <atomic>
#include <cstdint>

#include "Protocol/meter/Meters.h"
#include "platform/critical_section.h"
#include "platform/thread.h"

namespace ostrel {

class PolledChannel : public Meters {
 public:
  /// Held for a whole pass over the device table.
  virtual std::uint32_t STDMETHODCALLTYPE LockPoll() = 0;
  virtual std::uint32_t STDMETHODCALLTYPE UnlockPoll() = 0;
  /// 1 when the meter is not in its failure hold.
  virtual std::uint32_t STDMETHODCALLTYPE CanPollDevice(std::uint32_t device) = 0;

  platform::ThreadHandle PollThread = nullptr;  // guarded by ThreadLock
  /// Whoever starts, ends or waits for the poll thread holds it, the waiting included; the poll thread never takes it.
  platform::FairSection ThreadLock;
  /// The poll thread's last word; taken back by the thread or by a start, whichever comes first.
  std::atomic<std::uint32_t> PollEnded{0};

 protected:
  ~PolledChannel() = default;
};

}  // namespace ostrel
