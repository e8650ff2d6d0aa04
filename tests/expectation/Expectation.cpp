#include "tests/expectation/Expectation.h"

#include <cmath>
#include <cstdio>

#include "simulator/EventLog.h"
#include "simulator/Quantities.h"

namespace ostrel::sim {
namespace {

constexpr const char* kYes = "да";
constexpr const char* kNo = "нет";

double Rounded(double value, double unitsPerOne) { return std::round(value * unitsPerOne) / unitsPerOne; }

double Factors(const MeterView& view) { return static_cast<double>(view.settings.ku) * view.settings.ki; }

std::string Printed(const char* format, auto... values) {
  char text[32];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

std::string Dated(const CivilTime& civil, const char* format) {
  return Printed(format, civil.day, civil.month, civil.year % 100);
}

/// Nameplate and coefficients: tags 0 to 8.
Expected NamePlate(const MeterView& view, std::uint32_t tag) {
  const auto version = ProgramVersion(view.model);
  const auto& variant = view.model.Variant();
  const Expected values[] = {Printed("N %08u", view.model.Serial()),
                             Dated(ReleaseDate(view.model), "%02d/%02d/%02d"),
                             static_cast<double>(view.spec.address),
                             Printed("%x.%x.%x", version[0], version[1], version[2]),
                             static_cast<double>(variant.constant),
                             (variant.bytes[1] & 0x40) != 0 ? -40.0 : -20.0,
                             static_cast<double>(view.settings.ku),
                             static_cast<double>(view.settings.ki),
                             Factors(view)};
  return values[tag];
}

/// Registers by tariff (9 to 44, nine per kind, the last one the sum) and those of the running tariff (45 to 48).
Expected Register(const MeterView& view, std::uint32_t tag) {
  const bool running = tag >= 45;
  const std::uint32_t kind = running ? tag - 45 : (tag - 9) / 9;
  const int tariff = running ? view.model.TariffAt(view.now) : static_cast<int>(((tag - 9) % 9 + 1) % 9);
  return EnergyValue(view, view.model.Energy().At(tariff, view.now)[kind]);
}

double PowerValue(const MeterView& view, PowerKind kind, int phase) {
  const auto counted = static_cast<double>(view.model.PowerRegister(kind, phase, view.now));
  return counted / 1000 * view.settings.ku * view.settings.ki * view.model.Variant().powerScale;
}

/// P, Q, S, power factor, a reserved angle, voltage and current of the phases (49 to 69) and of their sum (70 to 74).
std::optional<Expected> PhaseValue(const MeterView& view, std::uint32_t tag) {
  const int phase = static_cast<int>((tag - 49) / 7 + 1) % 4;
  const std::uint32_t place = (tag - 49) % 7;
  constexpr PowerKind kPowers[] = {PowerKind::Active, PowerKind::Reactive, PowerKind::Apparent};
  if (place < 3) return PowerValue(view, kPowers[place], phase);
  if (place == 3) return Rounded(view.model.PowerFactor(phase, view.now), 100);
  if (place == 5) return Rounded(view.model.Voltage(phase, view.now), 100) * view.settings.ku;
  if (place == 6) return Rounded(view.model.Current(phase, view.now), 10000) * view.settings.ki;
  return std::nullopt;
}

/// Frequency, averaged values, voltages between phases, distortions: 75 to 93.
Expected NetworkQuality(const MeterView& view, std::uint32_t tag) {
  const Model& model = view.model;
  const MeterTime averaged = AveragedAt(view.now);
  if (tag == 75) return Rounded(model.Frequency(view.now), 100);
  if (tag <= 78) return Rounded(model.Voltage(static_cast<int>(tag - 75), averaged), 100);
  if (tag <= 81) return Rounded(model.InterphaseVoltage(static_cast<int>(tag - 78), averaged), 100);
  if (tag == 82) return Rounded(model.PositiveSequenceVoltage(averaged), 100);
  if (tag <= 85) return Rounded(model.InterphaseVoltage(static_cast<int>(tag - 82), view.now), 100);
  if (tag == 86) return Rounded(model.PositiveSequenceVoltage(view.now), 100);
  if (tag == 87) return Rounded(model.Frequency(averaged), 100);
  if (tag <= 90) return Rounded(model.Distortion(static_cast<int>(tag - 87), view.now), 100);
  return Rounded(model.InterphaseDistortion(static_cast<int>(tag - 90), view.now), 100);
}

/// Four tags a record (103 to 182): date and time of its first stamp, then of its second. Logs of one stamp have no second.
std::optional<Expected> LogText(const MeterView& view, std::uint32_t tag, std::uint8_t log) {
  const auto record = static_cast<std::uint8_t>((tag - 103) / 4);
  const bool second = (tag - 103) % 4 >= 2;
  const bool isTime = (tag - 103) % 2 == 1;
  if (log == 0) return "";
  if (log > kLogs || (second && LogHasOneStamp(log))) return std::nullopt;
  const auto event = record < view.spec.logEvents ? FindEvent(view.model.Seed(), log, record, view.now) : std::nullopt;
  if (!event) return isTime ? "00:00:00" : "00.00.00 ";
  const CivilTime civil = ToCivil(view.wall.Shown(second ? event->end : event->begin));
  return isTime ? Printed("%02d:%02d:%02d", civil.hour, civil.minute, civil.second) : Dated(civil, "%02d.%02d.%02d ");
}

/// Sums of the running and the last day, month and year, six tags a kind: 186 to 209.
Expected PeriodEnergy(const MeterView& view, std::uint32_t tag) {
  const MeterTime now = view.now;
  const WallClock& wall = view.wall;
  const Period periods[] = {
      {wall.DayStart(now), now},   {wall.DayStart(now, -1), wall.DayStart(now)},
      {wall.MonthStart(now), now}, {wall.MonthStart(now, -1), wall.MonthStart(now)},
      {wall.YearStart(now), now},  {wall.YearStart(now, -1), wall.YearStart(now)},
  };
  const Period& period = periods[(tag - 186) % 6];
  return EnergyValue(view, view.model.Energy().Between(0, period.from, period.to)[(tag - 186) / 6]);
}

/// Load control, the estimated interval and limits: 212 to 242.
Expected ControlValue(const MeterView& view, std::uint32_t tag) {
  const MeterSettings& settings = view.settings;
  if (tag == 212) return static_cast<double>(settings.loadControl);
  if (tag == 213) return static_cast<double>(settings.estimatedIntervalStart);
  if (tag >= 219 && tag <= 222) return settings.powerLimits[tag - 219] / 10.0;
  const std::uint32_t place = tag >= 223 ? tag - 223 : tag - 214;
  return settings.energyLimits[place / 5][(place % 5 + 1) % 5] / (2.0 * view.model.Variant().constant);
}

}  // namespace

double EnergyValue(const MeterView& view, std::uint32_t pulses) {
  return pulses / (2.0 * view.model.Variant().constant) * Factors(view);
}

std::optional<Expected> ExpectedTag(const MeterView& view, std::uint32_t tagNumber, std::uint8_t log) {
  if (!TypeHasTag(view.model.Type().id, tagNumber)) return std::nullopt;
  if (tagNumber <= 8) return NamePlate(view, tagNumber);
  if (tagNumber <= 48) return Register(view, tagNumber);
  if (tagNumber <= 74) return PhaseValue(view, tagNumber);
  if (tagNumber <= 93) return NetworkQuality(view, tagNumber);
  if (tagNumber == 94) return static_cast<double>(view.model.Variant().bytes[2] & 0x0F);
  if (tagNumber == 95) return view.settings.transitionInhibited ? kYes : kNo;
  if (tagNumber == 96) return LocationText(view.spec);
  if (tagNumber >= 103 && tagNumber <= 182) return LogText(view, tagNumber, log);
  if (tagNumber == 183) return std::string(view.model.Variant().name);
  if (tagNumber == 184) return view.settings.recoveryInhibited ? kYes : kNo;
  if (tagNumber >= 186 && tagNumber <= 209) return PeriodEnergy(view, tagNumber);
  if (tagNumber == 210) return 1.0;
  if (tagNumber >= 212 && tagNumber <= 242) return ControlValue(view, tagNumber);
  if (tagNumber == 243) return static_cast<double>(view.model.Temperature(view.now));
  return std::nullopt;
}

}  // namespace ostrel::sim
