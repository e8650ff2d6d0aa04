// A line as it is: what is sent and every byte that comes, with its time. Nothing is taken away or put together here, so that
// what is wrong with a line can be seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/ports/ByteStream.h"
#include "host/session/Config.h"

namespace ostrel::host {

/// What came behind a request; times in ms from its last byte on.
struct Heard {
  std::vector<std::uint8_t> bytes;
  std::uint32_t firstMs = 0;
  std::uint32_t longestGapMs = 0;  // of quiet between two pieces
};

class Wire {
 public:
  /// Null with the system's reason when the port cannot be opened.
  [[nodiscard]] static std::unique_ptr<Wire> Open(const ChannelConfig& channel, std::string& error);

  /// False when the device does not take it.
  [[nodiscard]] bool SetMode(std::uint32_t baud, const std::string& parity);
  /// What comes by itself.
  [[nodiscard]] Heard Listen(std::uint32_t ms);
  /// Sends a frame, its check appended, and gathers what comes until the line is quiet. `waitMs` is for the first byte of the
  /// answer, behind an echo if the adapter is said to make one; with `wanted` bytes it is over at once.
  [[nodiscard]] Heard Ask(std::span<const std::uint8_t> request, std::uint32_t waitMs, std::size_t wanted = SIZE_MAX);
  [[nodiscard]] bool Failed() const { return stream_->Failed(); }
  /// ms that so many bytes take.
  [[nodiscard]] std::uint32_t BytesMs(std::size_t bytes) const;

 private:
  Wire(std::unique_ptr<ByteStream> stream, const ChannelConfig& channel)
      : stream_(std::move(stream)), baud_(channel.baud), echo_(channel.echo) {}

  std::unique_ptr<ByteStream> stream_;
  std::uint32_t baud_;
  bool echo_;
};

}  // namespace ostrel::host
