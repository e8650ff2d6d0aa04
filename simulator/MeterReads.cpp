#include "simulator/MeterReads.h"

#include "simulator/Bytes.h"
#include "simulator/EventLog.h"
#include "simulator/Parameters.h"

namespace ostrel::sim {
namespace {

using Data = std::vector<std::uint8_t>;
using Parameters = std::span<const std::uint8_t>;

void AppendStamp(Data& data, MeterTime time) {
  const CivilTime civil = ToCivil(time);
  for (const int part : {civil.second, civil.minute, civil.hour, civil.weekday, civil.day, civil.month, civil.year % 100}) {
    data.push_back(Bcd(part));
  }
}

std::optional<Data> ReadClock(const MeterView& view, Parameters parameters) {
  if (parameters.size() != 1 || parameters[0] != 0) return std::nullopt;
  Data data;
  AppendStamp(data, view.now);
  const int month = ToCivil(view.now).month;
  data.push_back(month >= 4 && month <= 10 ? 0 : 1);  // the season: 1 is winter
  return data;
}

/// The month of code 1..12 that ended last or is running; 13 is the running one's namesake of a year ago.
Energies MonthEnergies(const MeterView& view, int code, int tariff) {
  const int current = ToCivil(view.now).month;
  int offset = code == 13 ? -12 : code - current;
  if (code <= 12 && code > current) offset -= 12;
  const MeterTime end = std::min(view.now, StartOfMonth(view.now, offset + 1));
  return view.model.Energy().Between(tariff, StartOfMonth(view.now, offset), end);
}

bool HasLastYearsMonth(const MeterType& type) { return type.id == 6 || type.id == 7 || type.id == 8 || type.id == 11; }

std::optional<Energies> ArrayEnergies(const MeterView& view, std::uint8_t array, int tariff) {
  const EnergyCounters& energy = view.model.Energy();
  const MeterTime today = StartOfDay(view.now);
  switch (array) {
    case 0x00:
      return energy.At(tariff, view.now);
    case 0x10:
      return energy.Between(tariff, StartOfYear(view.now), view.now);
    case 0x20:
      return energy.Between(tariff, StartOfYear(view.now, -1), StartOfYear(view.now));
    case 0x40:
      return energy.Between(tariff, today, view.now);
    case 0x50:
      return energy.Between(tariff, today - kDay, today);
    default:
      break;
  }
  const int month = array - 0x30;
  const int last = HasLastYearsMonth(view.model.Type()) ? 13 : 12;
  if (month < 1 || month > last) return std::nullopt;
  return MonthEnergies(view, month, tariff);
}

std::optional<Data> ReadEnergy(const MeterView& view, Parameters parameters) {
  if (parameters.size() != 2 || parameters[1] > 8) return std::nullopt;
  const auto energies = ArrayEnergies(view, parameters[0], parameters[1]);
  if (!energies) return std::nullopt;
  Data data;
  for (const std::uint32_t pulses : *energies) AppendBig(data, pulses, 4);
  return data;
}

std::optional<Data> ReadLog(const MeterView& view, Parameters parameters) {
  if (parameters.size() != 2) return std::nullopt;
  const std::uint8_t log = parameters[0];
  const std::uint8_t record = parameters[1];
  if (log < 1 || log > kLogs || record >= kLogRecords) return std::nullopt;
  const std::size_t stamps = LogHasOneStamp(log) ? 1 : 2;
  const auto event =
      record < view.spec.logEvents ? FindEvent(view.model.Seed(), log, record, view.now) : std::optional<LogEvent>();
  if (!event) return Data(stamps * 7);
  Data data;
  AppendStamp(data, event->begin);
  if (stamps == 2) AppendStamp(data, event->end);
  return data;
}

}  // namespace

std::optional<Data> ReadData(const MeterView& view, std::uint8_t code, Parameters parameters) {
  switch (code) {
    case 0x04:
      return ReadClock(view, parameters);
    case 0x05:
      return ReadEnergy(view, parameters);
    case 0x08:
      return ReadParameter(view, parameters);
    case 0x09:
      return ReadLog(view, parameters);
    default:
      return std::nullopt;
  }
}

}  // namespace ostrel::sim
