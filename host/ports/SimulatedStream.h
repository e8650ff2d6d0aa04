// A line of simulated meters inside this process. Waiting is done on the platform's clock, so that a virtual one drives it.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "host/ports/ByteStream.h"
#include "simulator/Line.h"

namespace ostrel::host {

class SimulatedStream final : public ByteStream {
 public:
  /// The line outlives the stream: its meters stay as they are when the port is closed and opened again.
  explicit SimulatedStream(std::shared_ptr<sim::Line> line);

  bool SetMode(const LineMode&) override { return true; }
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override;
  bool Send(const std::uint8_t* bytes, std::size_t size) override;
  bool Failed() const override { return failed_; }
  std::uint32_t OwnGapMs() const override { return 0; }

 private:
  struct Arrival {
    std::uint32_t tick;
    std::vector<std::uint8_t> bytes;
  };

  std::size_t TakeDue(std::uint8_t* buffer, std::size_t size);

  std::shared_ptr<sim::Line> line_;
  std::deque<Arrival> arrivals_;
  bool failed_ = false;
};

}  // namespace ostrel::host
