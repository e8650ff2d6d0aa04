// The record times of a history tag within an interval.
#include <algorithm>

#include "Protocol/acquisition/DeviceInfo.h"
#include "Protocol/history/HistoryClasses.h"
#include "Protocol/history/ProfileTimes.h"
#include "Protocol/history/ProfileWalk.h"
#include "Protocol/history/RecordTimes.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

/// The end is not included; an interval of no length asks for exactly its time.
bool Within(std::uint64_t time, std::uint64_t start, std::uint64_t end) {
  return start == end ? time == start : start <= time && time < end;
}

std::uint32_t ListEnergy(RecordTimes times, std::uint64_t start, std::uint64_t end, TimestampList& list) {
  FILETIME time{};
  while (times.Next(time)) {
    if (!Within(Ticks(time), start, end)) continue;
    if (!list.Times.Append(time)) return 0;
    ++list.Count;
  }
  return ResultOf(times.Outcome());
}

/// Both ends inwards onto whole periods, and back to the caller also when nothing is then listed. An end between two records
/// is the asking program's to round.
TimeOutcome AlignInterval(std::uint32_t period, FILETIME& start, FILETIME& end) {
  FILETIME first = start;
  FILETIME last = end;
  TimeOutcome outcome = AlignForward(first, period);
  if (outcome == TimeOutcome::Done) outcome = AlignBack(last, period);
  if (outcome != TimeOutcome::Done) return outcome;
  start = first;
  end = last;
  return outcome;
}

std::uint32_t ListProfile(CProtocol& protocol, ProfileInterval interval, FILETIME& start, FILETIME& end, TimestampList& list) {
  interval.period = ReadProfilePeriod(protocol, interval.meter.device, interval.profile);
  if (interval.period == 0) return 1;
  const TimeOutcome aligned = AlignInterval(interval.period, start, end);
  if (aligned != TimeOutcome::Done) return ResultOf(aligned);
  interval.start = start;
  interval.end = end;
  const std::uint32_t walked = ProfileWalk(protocol, interval, list);
  std::reverse(list.Times.begin(), list.Times.end());
  return walked;
}

}  // namespace

std::uint32_t STDMETHODCALLTYPE CProtocol::GetHistoryTimestamps(std::uint32_t meterType, std::uint32_t tagId,
                                                                std::uint32_t device, FILETIME* start, FILETIME* end,
                                                                TimestampList* list) {
  if (start == nullptr || end == nullptr || list == nullptr) return 0;
  const std::uint32_t depth = GetHistoryDepth(meterType, tagId);
  const auto state = LookAtMeter(*this, device);
  if (!state || !state->exchangeOn) return 0;
  const auto found = HistoryClassMap.find(tagId);
  if (found == HistoryClassMap.end()) return 0;
  SYSTEMTIME clock{};
  if (ReadMeterTime(*this, device, clock) == 0 || ReadInfoOnce(*this, device) == 0) return 0;
  if (!Contains(kAllTypes, meterType)) return 1;
  if (const auto step = EnergyStep(found->second)) {
    return ListEnergy(RecordTimes(*step, clock, depth), Ticks(*start), Ticks(*end), *list);
  }
  const ProfileClass* const row = FindProfileClass(found->second);
  if (row == nullptr || !Contains(row->listed, meterType)) return 1;
  const ProfileInterval interval{.meter = state->meter,
                                 .meterType = meterType,
                                 .tagId = tagId,
                                 .profile = row->profile,
                                 .period = 0,
                                 .start = {},
                                 .end = {}};
  return ListProfile(*this, interval, *start, *end, *list);
}

}  // namespace ostrel
