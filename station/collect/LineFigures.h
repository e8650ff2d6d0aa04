// What happened on one channel's line, by meter: requests and what came back, how long answers took to begin, and how far
// each meter's clock is off. Taken from what passes the port, without a request of our own.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "host/ports/ByteStream.h"

namespace ostrel::station {

/// Upper ends of the histogram's steps, ms; one more step counts what took longer.
inline constexpr std::array<std::uint32_t, 9> kTurnaroundMs = {10, 20, 50, 100, 200, 500, 1000, 2000, 5000};

struct MeterFigures {
  std::int64_t requests = 0;
  std::int64_t answers = 0;  // with a right check
  std::int64_t silent = 0;
  std::int64_t spoiled = 0;  // something came, never with a right check
  std::array<std::int64_t, kTurnaroundMs.size() + 1> turnaround{};
  std::int64_t turnaroundSumMs = 0;
  std::optional<std::int64_t> clockOffsetSeconds;  // the meter's clock ahead of the computer's
};

class LineFigures {
 public:
  /// A request has left. Called on the thread that sends.
  void Sent(std::span<const std::uint8_t> request);
  /// Bytes of an answer; none after silence. Called on the thread that reads.
  void Received(std::span<const std::uint8_t> bytes);

  [[nodiscard]] MeterFigures Of(std::uint32_t address) const;
  /// Tick count of the last thing that happened.
  [[nodiscard]] std::uint32_t LastActivity() const;

 private:
  void Settle();
  void ReadClock(MeterFigures& meter, std::span<const std::uint8_t> answer) const;

  mutable std::mutex mutex_;
  std::map<std::uint8_t, MeterFigures> meters_;
  std::vector<std::uint8_t> request_;
  std::vector<std::uint8_t> answer_;
  bool open_ = false;  // a request waits for the rest of its answer
  bool begun_ = false;
  std::uint32_t sentAt_ = 0;
  std::uint32_t lastActivity_ = 0;
};

/// A line whose traffic is also told to the figures.
[[nodiscard]] std::unique_ptr<host::ByteStream> Watched(std::unique_ptr<host::ByteStream> stream,
                                                        std::shared_ptr<LineFigures> figures);

}  // namespace ostrel::station
