// The record times of a history tag within an interval.
#include <algorithm>
#include <optional>

#include "Protocol/history/HistoryClasses.h"
#include "Protocol/history/HistoryOperations.h"
#include "Protocol/history/HistoryState.h"
#include "Protocol/history/ProfileTimes.h"
#include "Protocol/history/ProfileWalk.h"
#include "Protocol/history/RecordTimes.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/meter/MeterRequest.h"

namespace ostrel {
namespace {

/// The end is not included; an interval of no length asks for exactly its time.
bool Within(std::uint64_t time, std::uint64_t start, std::uint64_t end) {
  return start == end ? time == start : start <= time && time < end;
}

/// What a listing comes to; the host learns no more than whether it failed.
enum class Listing : std::uint32_t { Failed = 0, Done = 1 };

Listing ListingOf(TimeOutcome outcome) { return static_cast<Listing>(ResultOf(outcome)); }

Listing ListEnergy(RecordTimes times, std::uint64_t start, std::uint64_t end, TimestampList& list) {
  FILETIME time{};
  while (times.Next(time)) {
    if (!Within(Ticks(time), start, end)) continue;
    if (!list.Times.Append(time)) return Listing::Failed;
    ++list.Count;
  }
  return ListingOf(times.Outcome());
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

/// A profile whose period is not to be had lists nothing, and has not failed.
Listing ListProfile(Meters& meters, HistoryState& kept, ProfileInterval interval, FILETIME& start, FILETIME& end,
                    TimestampList& list) {
  interval.period = ReadProfilePeriod(meters, interval.meter.device, interval.profile);
  if (interval.period == 0) return Listing::Done;
  const TimeOutcome aligned = AlignInterval(interval.period, start, end);
  if (aligned != TimeOutcome::Done) return ListingOf(aligned);
  interval.start = start;
  interval.end = end;
  const std::uint32_t walked = ProfileWalk(meters, kept, interval, list);
  std::reverse(list.Times.begin(), list.Times.end());
  return walked != 0 ? Listing::Done : Listing::Failed;
}

/// The meter's clock, with its factors known; nothing when the meter could not be asked for both.
std::optional<SYSTEMTIME> BeginListing(Meters& meters, std::uint32_t device) {
  SYSTEMTIME clock{};
  if (ReadMeterTime(meters, device, clock) == 0 || ReadInfoOnce(meters, device) == 0) return std::nullopt;
  return clock;
}

}  // namespace

std::uint32_t ListRecordTimes(Meters& meters, HistoryState& kept, std::uint32_t meterType, std::uint32_t tagId,
                              std::uint32_t device, FILETIME& start, FILETIME& end, TimestampList& list) {
  const auto state = LookAtMeter(meters, device);
  const auto found = kept.HistoryClassMap.find(tagId);
  if (!state || !state->exchangeOn || found == kept.HistoryClassMap.end()) return 0;
  const auto clock = BeginListing(meters, device);
  if (!clock) return 0;
  Listing listing = Listing::Done;  // of a type without this archive
  const ProfileClass* const row = FindProfileClass(found->second);
  const auto step = EnergyStep(found->second);
  if (step && Contains(kAllTypes, meterType)) {
    listing = ListEnergy(RecordTimes(*step, *clock, DepthOf(kept, meterType, tagId)), Ticks(start), Ticks(end), list);
  } else if (row != nullptr && Contains(row->listed, meterType)) {
    const ProfileInterval interval{.meter = state->meter,
                                   .meterType = meterType,
                                   .tagId = tagId,
                                   .profile = row->profile,
                                   .period = 0,
                                   .start = {},
                                   .end = {}};
    listing = ListProfile(meters, kept, interval, start, end, list);
  }
  return static_cast<std::uint32_t>(listing);
}

}  // namespace ostrel
