// Serves a line through a port: requests in, deliveries out when they are due.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "simulator/Line.h"
#include "simulator/RequestFramer.h"
#include "simulator/program/MeterPort.h"

namespace ostrel::sim {

class MeterServer {
 public:
  /// The port is open.
  MeterServer(Line& line, IMeterPort& port) : line_(line), port_(port) {}

  /// Until `stopped` says so, which is asked several times a second.
  void Run(bool (*stopped)());

 private:
  void Step();
  void WaitWhileDown();
  void Take(std::size_t count, std::int64_t nowMs);
  void Transact(const std::vector<std::uint8_t>& request, std::int64_t nowMs);
  void DeliverDue(std::int64_t nowMs);
  [[nodiscard]] int WaitMs(std::int64_t nowMs) const;

  Line& line_;
  IMeterPort& port_;
  RequestFramer framer_;
  std::multimap<std::int64_t, std::vector<std::uint8_t>> due_;  // by time, in the order they were queued
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(512);
  bool open_ = true;
};

}  // namespace ostrel::sim
