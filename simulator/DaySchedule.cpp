#include "simulator/DaySchedule.h"

#include <algorithm>

namespace ostrel::sim {
namespace {

constexpr int At(int hour, int minute) { return hour * 60 + minute; }

constexpr DayPiece kPieces[] = {
    {.fromMinute = At(0, 0), .tariff = 1, .capacitive = true},
    {.fromMinute = At(3, 24), .tariff = 1, .exporting = true, .capacitive = true},
    {.fromMinute = At(3, 30), .tariff = 1, .capacitive = true},
    {.fromMinute = At(5, 0), .tariff = 1},
    {.fromMinute = At(7, 0), .tariff = 2},
    {.fromMinute = At(8, 24), .tariff = 2, .exporting = true},
    {.fromMinute = At(8, 30), .tariff = 2},
    {.fromMinute = At(9, 40), .tariff = 2, .capacitive = true},
    {.fromMinute = At(9, 50), .tariff = 2},
    {.fromMinute = At(10, 0), .tariff = 3},
    {.fromMinute = At(13, 24), .tariff = 3, .exporting = true},
    {.fromMinute = At(13, 30), .tariff = 3},
    {.fromMinute = At(14, 40), .tariff = 3, .capacitive = true},
    {.fromMinute = At(14, 50), .tariff = 3},
    {.fromMinute = At(17, 0), .tariff = 4},
    {.fromMinute = At(20, 24), .tariff = 4, .exporting = true},
    {.fromMinute = At(20, 30), .tariff = 4},
    {.fromMinute = At(21, 40), .tariff = 4, .capacitive = true},
    {.fromMinute = At(21, 50), .tariff = 4},
    {.fromMinute = At(23, 0), .tariff = 1},
};

}  // namespace

std::span<const DayPiece> DayPieces() { return kPieces; }

const DayPiece& PieceAt(MeterTime time) {
  const auto minute = static_cast<int>((time - StartOfDay(time)) / 60);
  const auto* next = std::ranges::upper_bound(kPieces, minute, {}, &DayPiece::fromMinute);
  return *(next - 1);
}

int TariffOf(const DayPiece& piece, MeterTime time, int tariffs) {
  const bool weekend = ToCivil(time).weekday >= 6;
  return tariffs == 8 && weekend ? piece.tariff + 4 : piece.tariff;
}

}  // namespace ostrel::sim
