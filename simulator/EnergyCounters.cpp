#include "simulator/EnergyCounters.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ostrel::sim {

EnergyCounters::EnergyCounters(const MeterType& type, SmoothCurve active, SmoothCurve reactive, std::uint32_t pulsesPerKwh,
                               std::vector<Period> outages)
    : type_(type),
      active_(std::move(active)),
      reactive_(std::move(reactive)),
      pulses_per_watt_second_(pulsesPerKwh / 3.6e6),
      outages_(std::move(outages)),
      kept_(1) {}

Energies EnergyCounters::At(int tariff, MeterTime time) const {
  if (time <= kInstalled) return {};
  const MeterTime dayStart = StartOfDay(time);
  Totals totals = UpToDay(static_cast<std::size_t>((dayStart - kInstalled) / kDay));
  AddDay(totals, dayStart, time);
  if (tariff != 0) return Pulses(totals, tariff);
  Energies sum{};
  for (int each = 1; each <= kTariffs; ++each) {
    const Energies pulses = Pulses(totals, each);
    for (std::size_t kind = 0; kind < sum.size(); ++kind) sum[kind] += pulses[kind];
  }
  return sum;
}

Energies EnergyCounters::Between(int tariff, MeterTime from, MeterTime to) const {
  Energies counted = At(tariff, to);
  const Energies before = At(tariff, from);
  for (std::size_t kind = 0; kind < counted.size(); ++kind) counted[kind] -= before[kind];
  return counted;
}

/// Of the parts that have power, each by itself: within an outage the registers stand still to the last bit.
double EnergyCounters::Integral(const SmoothCurve& curve, MeterTime from, MeterTime to) const {
  double sum = 0;
  for (const Period& outage : outages_) {
    if (outage.to <= from) continue;
    if (outage.from >= to) break;
    if (outage.from > from) sum += curve.IntegralTo(outage.from) - curve.IntegralTo(from);
    from = outage.to;
  }
  return from < to ? sum + curve.IntegralTo(to) - curve.IntegralTo(from) : sum;
}

void EnergyCounters::AddDay(Totals& totals, MeterTime dayStart, MeterTime time) const {
  MeterTime from = dayStart;
  const auto pieces = DayPieces();
  for (std::size_t i = 0; i < pieces.size() && from < time; ++i) {
    const MeterTime end = i + 1 < pieces.size() ? dayStart + pieces[i + 1].fromMinute * 60 : dayStart + kDay;
    const MeterTime to = std::min(end, time);
    auto& kinds = totals[static_cast<std::size_t>(TariffOf(pieces[i], dayStart, type_.tariffs) - 1)];
    kinds[pieces[i].exporting && type_.exports ? 1 : 0] += Integral(active_, from, to);
    kinds[pieces[i].capacitive ? 3 : 2] += Integral(reactive_, from, to);
    from = to;
  }
}

void EnergyCounters::AddWholeDays(Totals& totals, std::size_t from, std::size_t to) const {
  for (std::size_t day = from; day < to; ++day) {
    const MeterTime start = kInstalled + static_cast<MeterTime>(day) * kDay;
    AddDay(totals, start, start + kDay);
  }
}

const EnergyCounters::Totals& EnergyCounters::UpToDay(std::size_t day) const {
  for (const Recent& recent : recent_) {
    if (recent.day == day) return recent.totals;
  }
  while (kept_.size() <= day / kDaysBetween) {
    Totals next = kept_.back();
    AddWholeDays(next, (kept_.size() - 1) * kDaysBetween, kept_.size() * kDaysBetween);
    kept_.push_back(next);
  }
  Recent& made = recent_[oldest_++ % recent_.size()];
  made = {.day = day, .totals = kept_[day / kDaysBetween]};
  AddWholeDays(made.totals, day - day % kDaysBetween, day);
  return made.totals;
}

Energies EnergyCounters::Pulses(const Totals& totals, int tariff) const {
  Energies pulses{};
  const auto& kinds = totals[static_cast<std::size_t>(tariff - 1)];
  for (std::size_t kind = 0; kind < pulses.size(); ++kind) {
    const double counted = std::floor(kinds[kind] * pulses_per_watt_second_);
    pulses[kind] = static_cast<std::uint32_t>(static_cast<std::uint64_t>(counted));
  }
  return pulses;
}

}  // namespace ostrel::sim
