#include "simulator/Quantities.h"

#include <cmath>
#include <cstdlib>

namespace ostrel::sim {
namespace {

struct Selector {
  int variety = 0;
  int phase = 0;
};

Quantity Plain(double value, double unitsPerOne) {
  return {.number = static_cast<std::uint32_t>(std::llround(value * unitsPerOne)) & 0x3FFFFF};
}

/// Powers and power factors carry the directions of both powers, whichever is asked for.
Quantity Directed(const Model& model, Quantity quantity, int phase, MeterTime now) {
  quantity.exporting = model.Power(PowerKind::Active, phase, now) < 0;
  quantity.capacitive = model.Power(PowerKind::Reactive, phase, now) < 0;
  return quantity;
}

std::optional<Quantity> ReadPower(const Model& model, Selector selector, MeterTime now) {
  if (selector.variety > 2) return std::nullopt;
  const auto kind = static_cast<PowerKind>(selector.variety);
  const std::int64_t counted = std::abs(model.PowerRegister(kind, selector.phase, now));
  return Directed(model, {.number = static_cast<std::uint32_t>(counted) & 0x3FFFFF}, selector.phase, now);
}

/// Phase voltages, voltages between phases, and the positive sequence.
std::optional<Quantity> ReadVoltage(const Model& model, Selector selector, MeterTime now) {
  if (selector.variety == 0 && selector.phase != 0) return Plain(model.Voltage(selector.phase, now), 100);
  if (selector.variety == 1 && selector.phase != 0) return Plain(model.InterphaseVoltage(selector.phase, now), 100);
  if (selector.variety == 2 && selector.phase == 0) return Plain(model.PositiveSequenceVoltage(now), 100);
  return std::nullopt;
}

std::optional<Quantity> ReadDistortion(const Model& model, Selector selector, MeterTime now) {
  if (selector.phase == 0 || selector.variety > 1) return std::nullopt;
  const double percent =
      selector.variety == 0 ? model.Distortion(selector.phase, now) : model.InterphaseDistortion(selector.phase, now);
  return Plain(percent, 100);
}

std::optional<Quantity> ReadFrequency(const Model& model, Selector selector, MeterTime now) {
  if (selector.variety != 0 || selector.phase != 0) return std::nullopt;
  return Plain(model.Frequency(now), 100);
}

}  // namespace

std::optional<Quantity> ReadQuantity(const Model& model, std::uint8_t selector, MeterTime now) {
  const Selector parts{.variety = selector >> 2 & 3, .phase = selector & 3};
  switch (selector >> 4) {
    case 0x0:
      return ReadPower(model, parts, now);
    case 0x1:
      return ReadVoltage(model, parts, now);
    case 0x2:
      if (parts.variety != 0 || parts.phase == 0) return std::nullopt;
      return Plain(model.Current(parts.phase, now), 10000);
    case 0x3:
      if (parts.variety != 0) return std::nullopt;
      return Directed(model, Plain(model.PowerFactor(parts.phase, now), 100), parts.phase, now);
    case 0x4:
      return ReadFrequency(model, parts, now);
    case 0x8:
      return ReadDistortion(model, parts, now);
    case 0x9:
      return ReadFrequency(model, parts, AveragedAt(now));
    case 0xA:
      return ReadVoltage(model, parts, AveragedAt(now));
    default:
      return std::nullopt;
  }
}

CivilTime ReleaseDate(const Model& model) {
  return {
      .year = 2023, .month = static_cast<int>(1 + model.Serial() / 28 % 12), .day = static_cast<int>(1 + model.Serial() % 28)};
}

std::array<std::uint8_t, 3> ProgramVersion(const Model& model) {
  return {static_cast<std::uint8_t>(model.Type().id), static_cast<std::uint8_t>(model.Serial() % 10), 0x0A};
}

std::string LocationText(const MeterSpec& spec) {
  return spec.location.empty() ? "ПС-" + std::to_string(spec.address) : spec.location;
}

}  // namespace ostrel::sim
