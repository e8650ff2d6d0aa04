#include "simulator/EnergyArchives.h"

#include <algorithm>

#include "simulator/Bytes.h"

namespace ostrel::sim {
namespace {

using Data = std::vector<std::uint8_t>;
using Parameters = std::span<const std::uint8_t>;

constexpr int kTariffs = 8;
constexpr int kMonthYearAgo = 13;
constexpr int kMostDays = 62;  // behind which the last day with any number lies

Data Encoded(const Energies& energies) {
  Data data;
  for (const std::uint32_t pulses : energies) AppendBig(data, pulses, 4);
  return data;
}

/// How far back a month's code lies: the newest month of that number that has begun, or the one a year ago.
std::optional<int> MonthOffset(const MeterView& view, int code) {
  const int last = view.model.Type().keepsMonthYearAgo ? kMonthYearAgo : 12;
  if (code < 1 || code > last) return std::nullopt;
  if (code == kMonthYearAgo) return -12;
  const int current = ToCivil(view.wall.Shown(view.now)).month;
  return code <= current ? code - current : code - current - 12;
}

std::optional<Period> MonthOfCode(const MeterView& view, int code) {
  const auto offset = MonthOffset(view, code);
  if (!offset) return std::nullopt;
  return Period{view.wall.MonthStart(view.now, *offset), std::min(view.now, view.wall.MonthStart(view.now, *offset + 1))};
}

/// Days are kept by their number in the month; a place holds the last day of that number until the next one is over.
std::optional<Period> DayOfNumber(const MeterView& view, int number) {
  if (number < 1 || number > 31) return std::nullopt;
  for (int back = 1; back <= kMostDays; ++back) {
    const MeterTime from = view.wall.DayStart(view.now, -back);
    if (ToCivil(view.wall.Shown(from)).day == number) return Period{from, view.wall.DayStart(view.now, 1 - back)};
  }
  return std::nullopt;
}

std::optional<Period> PeriodOfArray(const MeterView& view, std::uint8_t array) {
  const WallClock& wall = view.wall;
  switch (array) {
    case 0x10:
      return Period{wall.YearStart(view.now), view.now};
    case 0x20:
      return Period{wall.YearStart(view.now, -1), wall.YearStart(view.now)};
    case 0x40:
      return Period{wall.DayStart(view.now), view.now};
    case 0x50:
      return Period{wall.DayStart(view.now, -1), wall.DayStart(view.now)};
    default:
      return array >> 4 == 3 ? MonthOfCode(view, array & 0x0F) : std::nullopt;
  }
}

/// The beginning whose readings an archive holds. Only months have places.
std::optional<MeterTime> MomentOfArchive(const MeterView& view, std::uint8_t archive, std::uint8_t place) {
  if (archive == 0x83) {
    const auto offset = MonthOffset(view, place);
    return offset ? std::optional(view.wall.MonthStart(view.now, *offset)) : std::nullopt;
  }
  if (place != 0) return std::nullopt;
  switch (archive) {
    case 0x81:
      return view.wall.YearStart(view.now);
    case 0x82:
      return view.wall.YearStart(view.now, -1);
    case 0x84:
      return view.wall.DayStart(view.now);
    case 0x85:
      return view.wall.DayStart(view.now, -1);
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<Data> ReadEnergyArray(const MeterView& view, Parameters parameters) {
  if (parameters.size() != 2 || parameters[1] > kTariffs) return std::nullopt;
  const EnergyCounters& energy = view.model.Energy();
  if (parameters[0] == 0) return Encoded(energy.At(parameters[1], view.now));
  const auto period = PeriodOfArray(view, parameters[0]);
  if (!period) return std::nullopt;
  return Encoded(energy.Between(parameters[1], period->from, period->to));
}

std::optional<Data> ReadEnergyArchive(const MeterView& view, Parameters parameters) {
  if (parameters.size() != 5 || parameters[2] > kTariffs || parameters[3] != 0x0F || parameters[4] != 0) return std::nullopt;
  const std::uint8_t tariff = parameters[2];
  const EnergyCounters& energy = view.model.Energy();
  if (parameters[0] == 0x06 && view.model.Type().keepsDays) {
    const auto day = DayOfNumber(view, parameters[1]);
    return day ? std::optional(Encoded(energy.Between(tariff, day->from, day->to))) : std::nullopt;
  }
  const auto moment = MomentOfArchive(view, parameters[0], parameters[1]);
  if (!moment) return std::nullopt;
  return Encoded(energy.At(tariff, *moment));
}

}  // namespace ostrel::sim
