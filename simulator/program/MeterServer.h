// Serves a line through a port: requests in, deliveries out when they are due.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "simulator/Line.h"
#include "simulator/RequestFramer.h"
#include "simulator/program/MeterPort.h"

namespace ostrel::sim {

class MeterServer {
 public:
  /// The port is open.
  MeterServer(Line& line, IMeterPort& port) : line_(line), port_(port) {}

  /// From here on bytes arrive garbled, both ways, unless the other end is set like this.
  void MindMode(SerialMode mode) { mode_ = mode; }

  /// Until `stopped` says so, which is asked several times a second.
  void Run(bool (*stopped)());

 private:
  /// A byte of a fast line takes less than a tick of the platform's clock.
  using Clock = std::chrono::steady_clock;

  void Step();
  void WaitWhileDown();
  void Take(std::size_t count);
  void Transact(const std::vector<std::uint8_t>& request, std::int64_t nowMs, Clock::time_point sent);
  void DeliverDue();
  void Chatter();
  void Write(const std::vector<std::uint8_t>& bytes);
  [[nodiscard]] std::vector<std::uint8_t> Heard(std::size_t count) const;
  [[nodiscard]] std::chrono::microseconds UntilDue() const;

  Line& line_;
  IMeterPort& port_;
  std::optional<SerialMode> mode_;
  RequestFramer framer_;
  std::multimap<Clock::time_point, std::vector<std::uint8_t>> due_;  // in the order they were queued
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(512);
  bool open_ = true;
};

}  // namespace ostrel::sim
