// What a transport has to give: bytes in and out of one line. Everything that an answer protocol needs on top of it (when an
// answer is over, stale input, echoes) is PortLine's and the same for all transports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "host/ports/LineMode.h"

namespace ostrel::host {

class ByteStream {
 public:
  virtual ~ByteStream() = default;

  /// False when the device cannot do it.
  [[nodiscard]] virtual bool SetMode(const LineMode& mode) = 0;
  /// Takes what is there, at most `size` bytes, and waits up to `waitMs` for the first one; a wait of 0 may last until a request
  /// may go. 0 when none came or the line failed.
  [[nodiscard]] virtual std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) = 0;
  /// Sends all bytes, within a bounded time. What is received next is waited for from the moment when the last one has left.
  /// False when they cannot be sent.
  virtual bool Send(const std::uint8_t* bytes, std::size_t size) = 0;
  /// The device has gone; nothing comes or goes until it is opened again.
  [[nodiscard]] virtual bool Failed() const = 0;
  /// ms of quiet inside one answer that this transport causes by itself.
  [[nodiscard]] virtual std::uint32_t OwnGapMs() const = 0;
};

/// Is told what goes through a stream, on the thread that moves it.
class StreamWatcher {
 public:
  virtual ~StreamWatcher() = default;
  /// Every byte has left.
  virtual void Sent(std::span<const std::uint8_t> bytes) = 0;
  virtual void Received(std::span<const std::uint8_t> bytes) = 0;
};

}  // namespace ostrel::host
