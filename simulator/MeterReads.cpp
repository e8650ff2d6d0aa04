#include "simulator/MeterReads.h"

#include "simulator/Bytes.h"
#include "simulator/EnergyArchives.h"
#include "simulator/EventLog.h"
#include "simulator/Parameters.h"
#include "simulator/ProfileMemory.h"

namespace ostrel::sim {
namespace {

using Data = std::vector<std::uint8_t>;
using Parameters = std::span<const std::uint8_t>;

void AppendStamp(Data& data, const MeterView& view, MeterTime time) {
  const CivilTime civil = ToCivil(view.wall.Shown(time));
  for (const int part : {civil.second, civil.minute, civil.hour, civil.weekday, civil.day, civil.month, civil.year % 100}) {
    data.push_back(Bcd(part));
  }
}

std::optional<Data> ReadClock(const MeterView& view, Parameters parameters) {
  if (parameters.size() != 1 || parameters[0] != 0) return std::nullopt;
  Data data;
  AppendStamp(data, view, view.now);
  data.push_back(view.wall.IsSummer(view.now) ? 0 : 1);
  return data;
}

/// A memory's number, an address, a count of bytes.
std::optional<Data> ReadMemory(const MeterView& view, Parameters parameters) {
  if (parameters.size() != 4) return std::nullopt;
  const auto profile = ProfileOfMemory(parameters[0]);
  if (!profile || !HasProfile(view, *profile)) return std::nullopt;
  return ProfileMemory(view, *profile).Read(static_cast<std::uint16_t>(BigValue(parameters.subspan(1, 2))), parameters[3]);
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
  AppendStamp(data, view, event->begin);
  if (stamps == 2) AppendStamp(data, view, event->end);
  return data;
}

}  // namespace

std::optional<Data> ReadData(const MeterView& view, std::uint8_t code, Parameters parameters) {
  switch (code) {
    case 0x04:
      return ReadClock(view, parameters);
    case 0x05:
      return ReadEnergyArray(view, parameters);
    case 0x06:
      return ReadMemory(view, parameters);
    case 0x08:
      return ReadParameter(view, parameters);
    case 0x09:
      return ReadLog(view, parameters);
    case 0x0A:
      return ReadEnergyArchive(view, parameters);
    default:
      return std::nullopt;
  }
}

}  // namespace ostrel::sim
