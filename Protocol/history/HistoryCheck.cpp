// Whether an archive holds a record of exactly a time.
#include "Protocol/history/HistoryClasses.h"
#include "Protocol/history/HistoryOperations.h"
#include "Protocol/history/HistoryState.h"
#include "Protocol/history/RecordTimes.h"
#include "Protocol/meter/MeterRequest.h"

namespace ostrel {
namespace {

std::uint32_t CheckEnergy(RecordTimes times, FILETIME& time) {
  FILETIME record{};
  while (times.Next(record)) {
    if (Ticks(record) != Ticks(time)) continue;
    time = record;
    return 1;
  }
  // A series that could not be worked out to its end cannot deny the record.
  return times.Outcome() == TimeOutcome::NotConvertible ? 1 : 0;
}

}  // namespace

// The records of a profile are known to a listing only, so the check denies every time of one; a period that cannot be
// read leaves the question open, which hosts take as a yes.
std::uint32_t CheckRecordTime(Meters& meters, const HistoryState& kept, std::uint32_t meterType, std::uint32_t tagId,
                              std::uint32_t device, FILETIME& time) {
  const auto state = LookAtMeter(meters, device);
  const auto found = kept.HistoryClassMap.find(tagId);
  if (!state || !state->exchangeOn || found == kept.HistoryClassMap.end()) return 0;
  SYSTEMTIME clock{};
  if (ReadMeterTime(meters, device, clock) == 0 || !Contains(kAllTypes, meterType)) return 0;
  if (const auto step = EnergyStep(found->second)) {
    return CheckEnergy(RecordTimes(*step, clock, DepthOf(kept, meterType, tagId)), time);
  }
  const ProfileClass* const row = FindProfileClass(found->second);
  if (row == nullptr || !Contains(row->listed, meterType)) return 0;
  return ReadProfilePeriod(meters, device, row->profile) == 0 ? 1 : 0;
}

}  // namespace ostrel
