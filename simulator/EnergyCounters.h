// The energy registers of a meter: pulses by tariff and direction, counted from the integrals of its power curves. Any
// period is a difference of two readings, so day, month and year agree with the registers pulse by pulse.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "simulator/DaySchedule.h"
#include "simulator/MeterTypes.h"
#include "simulator/SmoothCurve.h"

namespace ostrel::sim {

/// Pulses of A+, A-, R+ and R-, in the order in which answers carry them.
using Energies = std::array<std::uint32_t, 4>;

class EnergyCounters {
 public:
  /// Curves in watts and vars. `pulsesPerKwh` is twice the meter's constant. Outages are in order and apart; in them nothing is
  /// counted.
  EnergyCounters(const MeterType& type, SmoothCurve active, SmoothCurve reactive, std::uint32_t pulsesPerKwh,
                 std::vector<Period> outages);

  /// Registers of a tariff (1..8, or 0 for the sum of all) at a time. One thread at a time, as totals are kept once summed.
  [[nodiscard]] Energies At(int tariff, MeterTime time) const;
  /// What was counted in a period; periods before the installation count nothing.
  [[nodiscard]] Energies Between(int tariff, MeterTime from, MeterTime to) const;
  /// The first one is the time before the meter was put into service.
  [[nodiscard]] std::span<const Period> Outages() const { return outages_; }

 private:
  static constexpr int kTariffs = 8;
  /// Thousands of meters stand in one process for years of model time: few totals are kept, a few days are summed again.
  static constexpr std::size_t kDaysBetween = 64;
  using Totals = std::array<std::array<double, 4>, kTariffs>;  // watt seconds by tariff and kind

  [[nodiscard]] double Integral(const SmoothCurve& curve, MeterTime from, MeterTime to) const;
  /// Adds the part of the day up to `time` to the totals.
  void AddDay(Totals& totals, MeterTime dayStart, MeterTime time) const;
  struct Recent {
    std::size_t day = 0;
    Totals totals{};  // of day 0: nothing
  };

  [[nodiscard]] const Totals& UpToDay(std::size_t day) const;
  void AddWholeDays(Totals& totals, std::size_t from, std::size_t to) const;
  [[nodiscard]] Energies Pulses(const Totals& totals, int tariff) const;

  MeterType type_;
  SmoothCurve active_;
  SmoothCurve reactive_;
  double pulses_per_watt_second_;
  std::vector<Period> outages_;
  mutable std::vector<Totals> kept_;         // totals at the start of every kDaysBetween-th day since the installation
  mutable std::array<Recent, 12> recent_{};  // asked last: where the days, months and years began that are asked for now
  mutable std::size_t oldest_ = 0;           // of these
};

}  // namespace ostrel::sim
