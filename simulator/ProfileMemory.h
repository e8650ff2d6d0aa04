// A power profile as it lies in a meter's memory: cells of eight bytes in a ring. Each hour with power takes a header cell
// and one cell for each period of it, and the newest hour overwrites the oldest. Nothing is stored: a cell is worked out
// from its place in the ring.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/Meter.h"

namespace ostrel::sim {

[[nodiscard]] bool HasProfile(const MeterView& view, std::size_t profile);
/// Whether the meter's description leaves the record of an interval blank.
[[nodiscard]] bool IsBlank(const MeterView& view, const Period& interval);
/// The profile (0..2) that is read under a memory's number.
[[nodiscard]] std::optional<std::size_t> ProfileOfMemory(std::uint8_t memory);

class ProfileMemory {
 public:
  /// Of a profile that the meter has.
  ProfileMemory(const MeterView& view, std::size_t profile);

  /// Bytes from an address on, around the ring; FF where nothing has been written.
  [[nodiscard]] std::vector<std::uint8_t> Read(std::uint16_t address, std::size_t count) const;

  /// Header address of the hour that the clock showed, the first one at or after `start` around the ring. An hour that was
  /// shown twice is there twice.
  [[nodiscard]] std::optional<std::uint16_t> FindHour(MeterTime shown, std::uint16_t start) const;

 private:
  using Cell = std::array<std::uint8_t, 8>;
  using Hour = std::int64_t;  // of meter time

  [[nodiscard]] Cell CellAt(std::int64_t place) const;
  [[nodiscard]] Cell Header(Hour hour) const;
  [[nodiscard]] Cell Record(Period interval) const;
  /// Hours with power from the first one up to this, which is not counted; and the hour before which there are so many.
  [[nodiscard]] std::int64_t HoursBefore(Hour hour) const;
  [[nodiscard]] Hour HourAfter(std::int64_t count) const;
  [[nodiscard]] std::uint16_t Address(std::int64_t hourNumber) const;

  const MeterView& view_;
  std::int64_t cells_;           // in the ring
  std::int64_t cells_per_hour_;  // header and records
  MeterTime period_;
  std::int64_t hours_;  // written up to now, the running one included
};

}  // namespace ostrel::sim
