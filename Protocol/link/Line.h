// The line of a channel with its settings, its meters and its port: what every floor above the link works on. The object
// that the host holds is one; what its contract wants called through the object's own table is virtual here, so that a
// derived object sees it.
//
// The device table has no lock of its own: it is changed under PollLock, ExchangeLock and ProfileDataLock together, and whoever
// holds one of them may look a meter up.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "Protocol/link/ChannelRecord.h"
#include "Protocol/link/HostContext.h"

namespace ostrel {

class Line {
 public:
  Line() = default;
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  /// One transaction at a time; may be entered again by its holder.
  virtual std::uint32_t STDMETHODCALLTYPE LockExchange() = 0;
  virtual std::uint32_t STDMETHODCALLTYPE UnlockExchange() = 0;
  /// One raw exchange: sends `request` when `offset` is 0, then reads up to `*count` bytes to `answer + offset`. 1 when a byte
  /// came.
  virtual std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                             std::uint8_t* answer, std::uint32_t* count,
                                                             std::uint32_t offset) = 0;

  /// The meter at an index of the device table, or null. Not to be kept across a call that may change the table.
  [[nodiscard]] DeviceEntry* Device(std::uint32_t index) {
    return index < Channel.Devices.Size() ? &Channel.Devices[index] : nullptr;
  }

  ostrel::HostContext* HostContext = nullptr;
  ChannelRecord Channel{};
  std::atomic<std::uint32_t> Running{0};          // the poll thread is to go on
  std::atomic<std::uint32_t> PauseAfterError{0};  // ms; set by whoever opens the port, asked without the line
  std::uint32_t ThreadId = 0;                     // of the poll thread
  std::uint32_t PortOpen = 0;
  HRESULT LastPortResult = 0;

  // The last answer to a request for a current value; guarded by ExchangeLock. What opens the access channel meanwhile counts
  // its bytes in the same length.
  std::array<std::uint8_t, kAnswerBuffer> AnswerBuffer{};
  std::uint32_t AnswerLength = 0;
  /// Grows with every such request that is sent, so that no tag is decoded from an answer that is gone.
  std::uint64_t AnswerSerial = 0;

 protected:
  ~Line() = default;
};

}  // namespace ostrel
