// What a meter measures: one load behind every quantity. All of it is a pure function of the meter's description, the
// seed and the meter's time, so that a test can ask here what a tag must read. Values are those of the meter's own
// terminals; transformation coefficients are for who reads it.
#pragma once

#include <cstdint>
#include <vector>

#include "simulator/EnergyCounters.h"
#include "simulator/MeterSpec.h"
#include "simulator/MeterTypes.h"

namespace ostrel::sim {

enum class PowerKind : std::uint8_t { Active, Reactive, Apparent };

class Model {
 public:
  Model(const MeterSpec& spec, std::uint64_t seed);

  [[nodiscard]] const MeterType& Type() const { return type_; }
  [[nodiscard]] const MeterVariant& Variant() const { return variant_; }
  [[nodiscard]] std::uint64_t Seed() const { return seed_; }
  [[nodiscard]] std::uint32_t Serial() const { return serial_; }

  /// Phase 1..3, or 0 for all together. Watts, vars and volt-amperes; negative when energy flows out or is capacitive.
  [[nodiscard]] double Power(PowerKind kind, int phase, MeterTime time) const;
  /// 0..1.
  [[nodiscard]] double PowerFactor(int phase, MeterTime time) const;
  [[nodiscard]] double Voltage(int phase, MeterTime time) const;
  [[nodiscard]] double Current(int phase, MeterTime time) const;
  /// Between phases 1 and 2 (pair 1), 2 and 3 (pair 2), 3 and 1 (pair 3).
  [[nodiscard]] double InterphaseVoltage(int pair, MeterTime time) const;
  [[nodiscard]] double PositiveSequenceVoltage(MeterTime time) const;
  [[nodiscard]] double Frequency(MeterTime time) const;
  /// Distortion of the wave form in percent, of a phase and of a pair of phases.
  [[nodiscard]] double Distortion(int phase, MeterTime time) const;
  [[nodiscard]] double InterphaseDistortion(int pair, MeterTime time) const;
  /// Degrees Celsius inside the case.
  [[nodiscard]] int Temperature(MeterTime time) const;

  /// Power as its register holds it: thousandths, divided by the variant's scale; the sum is that of the three phases.
  [[nodiscard]] std::int64_t PowerRegister(PowerKind kind, int phase, MeterTime time) const;

  [[nodiscard]] const EnergyCounters& Energy() const { return energy_; }
  [[nodiscard]] int TariffAt(MeterTime time) const;
  /// False in a power cut.
  [[nodiscard]] bool HasPower(MeterTime time) const;

 private:
  struct Ratings {
    double volts, amperes, watts;
  };

  [[nodiscard]] static MeterVariant VariantOf(const MeterSpec& spec, const MeterType& type);
  [[nodiscard]] static Ratings RatingsOf(const MeterVariant& variant, const MeterType& type);
  [[nodiscard]] bool HasPhase(int phase) const { return phase == 1 || !type_.singlePhase; }

  MeterType type_;
  MeterVariant variant_;
  std::uint64_t seed_;
  std::uint32_t serial_;
  Ratings ratings_;
  double shares_[3];  // of the phases in the load
  SmoothCurve active_;
  SmoothCurve reactive_;
  std::vector<SmoothCurve> voltages_;
  std::vector<SmoothCurve> distortions_;
  SmoothCurve frequency_;
  SmoothCurve temperature_;
  EnergyCounters energy_;
};

/// Averaged quantities are those in the middle of the minute before.
[[nodiscard]] constexpr MeterTime AveragedAt(MeterTime time) { return time - time % 60 - 30; }

}  // namespace ostrel::sim
