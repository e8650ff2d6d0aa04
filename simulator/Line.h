// Several meters on one line. A request goes in with its time, what the other end will receive comes out with times:
// paced or at once, whole or spoiled. Nothing here waits; who owns a line delivers the bytes when they are due.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/FaultPlan.h"
#include "simulator/Meter.h"
#include "simulator/Random.h"

namespace ostrel::sim {

struct Delivery {
  std::int64_t afterUs = 0;  // microseconds after its request was sent
  std::vector<std::uint8_t> bytes;
};

/// A start bit, eight data bits and a stop bit; with parity one more.
inline constexpr std::uint32_t kBitsPerByte = 10;
inline constexpr std::uint32_t kBitsPerByteWithParity = 11;

/// Speed of the line; bytes take no time at 0.
struct Pace {
  std::uint32_t baud = 0;
  std::uint32_t bitsPerByte = kBitsPerByte;
};

/// Microseconds that so many bytes are on the line, rounded up.
[[nodiscard]] std::int64_t WireUs(Pace pace, std::size_t bytes);

class Line {
 public:
  explicit Line(std::vector<Meter> meters, FaultPlan plan = {}, Pace pace = {});

  /// What comes back for a request that has just been sent, in the order of its times; empty for silence.
  std::vector<Delivery> Transact(std::span<const std::uint8_t> request, std::int64_t utcMs);

  /// Bytes that come at this time though nobody asked; to be looked for again and again.
  std::vector<std::uint8_t> Chatter(std::int64_t utcMs);

  /// True while a failure of the port lasts: the owner closes its end, and opens it again afterwards.
  [[nodiscard]] bool IsDown(std::int64_t utcMs) const { return utcMs < down_until_ms_; }

  [[nodiscard]] std::span<Meter> Meters() { return meters_; }
  /// For drills whose faults change with time; their number stays.
  [[nodiscard]] std::span<Fault> Faults() { return plan_.faults; }

 private:
  struct Shape {
    std::uint32_t pieceBytes = 0;
    std::uint32_t gapMs = 0;
    std::uint32_t lateMs = 0;
    std::optional<std::uint32_t> againMs;
  };
  struct Passing {
    std::vector<std::uint8_t> before;  // arrives ahead of the answer
    std::vector<std::uint8_t> answer;
    bool glued = false;  // to one that was held back
    Shape shape;
  };

  [[nodiscard]] bool Meets(std::size_t faultIndex, std::uint8_t address);
  [[nodiscard]] Passing Ask(std::span<const std::uint8_t> request, std::int64_t utcMs);
  void AddNoise(std::uint32_t mostBytes, std::vector<std::uint8_t>& bytes);
  void Spoil(const Fault& fault, std::span<const std::uint8_t> request, std::int64_t utcMs, Passing& passing);
  [[nodiscard]] std::vector<Delivery> Schedule(const Passing& passing, std::size_t requestBytes) const;
  void Queue(std::int64_t utcMs, std::vector<Delivery>& deliveries);

  std::vector<Meter> meters_;
  FaultPlan plan_;
  Pace pace_;
  Random random_;
  std::vector<std::uint32_t> met_;       // requests seen by each fault of the plan
  std::vector<std::uint8_t> held_back_;  // the first half of a merged answer
  std::int64_t down_until_ms_;
  std::int64_t chatter_at_ms_ = 0;
  std::int64_t queued_until_us_;  // the last byte of a line that keeps the order
};

}  // namespace ostrel::sim
