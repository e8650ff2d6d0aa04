// The day of a meter: which tariff counts when, and when power flows back into the grid or is capacitive. Each tariff has
// some minutes of every direction, so that no register stays empty.
#pragma once

#include <span>

#include "simulator/MeterCalendar.h"

namespace ostrel::sim {

struct DayPiece {
  int fromMinute = 0;  // of the day; a piece lasts until the next one
  int tariff = 1;      // of a working day
  bool exporting = false;
  bool capacitive = false;
};

/// The pieces of any day, the first from minute 0.
[[nodiscard]] std::span<const DayPiece> DayPieces();
[[nodiscard]] const DayPiece& PieceAt(MeterTime time);

/// Tariff 1..`tariffs` of a piece on the day that holds `time`; with eight tariffs the weekend has the upper four.
[[nodiscard]] int TariffOf(const DayPiece& piece, MeterTime time, int tariffs);

}  // namespace ostrel::sim
