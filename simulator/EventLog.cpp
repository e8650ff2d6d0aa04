#include "simulator/EventLog.h"

#include "simulator/Random.h"
#include "simulator/SmoothCurve.h"

namespace ostrel::sim {
namespace {

LogEvent EventOfNumber(std::uint64_t logSeed, std::int64_t number, MeterTime spacing) {
  Random random(MixSeeds(logSeed, static_cast<std::uint64_t>(number)));
  const MeterTime quarter = spacing / 4;
  LogEvent event;
  event.begin = kInstalled + number * spacing + static_cast<MeterTime>(random.Below(static_cast<std::uint64_t>(2 * quarter)));
  event.end = event.begin + 1 + static_cast<MeterTime>(random.Below(static_cast<std::uint64_t>(quarter)));
  return event;
}

}  // namespace

std::optional<LogEvent> FindEvent(std::uint64_t seed, std::uint8_t log, std::uint8_t record, MeterTime now) {
  const std::uint64_t logSeed = MixSeeds(seed, 1000U + log);
  const MeterTime spacing = kDay + static_cast<MeterTime>(Random(logSeed).Below(6 * kDay));
  std::int64_t newest = (now - kInstalled) / spacing;
  if (EventOfNumber(logSeed, newest, spacing).end > now) --newest;
  const std::int64_t number = newest - record;
  if (number < 0) return std::nullopt;
  return EventOfNumber(logSeed, number, spacing);
}

}  // namespace ostrel::sim
