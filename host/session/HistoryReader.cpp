#include "host/session/HistoryReader.h"

#include "host/session/ProfileReader.h"
#include "platform/console.h"

namespace ostrel::host {

HistoryOutcome HistoryReader::Read(HistoryTag& tag, const std::optional<WallTime>& from, const std::optional<WallTime>& to,
                                   const HistorySink& sink, const HistoryProgress& progress) {
  if (tag.kind != HistoryKind::Profile) {
    return ReadArchive(tag, {.from = from.value_or(kAllTimes.from), .to = to.value_or(kAllTimes.to)}, sink, progress);
  }
  // With a second more the record that ends right now is in it.
  const WallTime end = to.value_or(ComputersWallTime() + 1);
  return ReadProfile(tag, {.from = from.value_or(end - kDaySeconds), .to = end}, sink, progress);
}

HistoryOutcome HistoryReader::ReadProfile(HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                                          const HistoryProgress& progress) {
  // Some types name profiles that their meters do not keep.
  if (client_.Depth(tag) == 0) return HistoryOutcome::Complete;
  tag.periodMinutes = client_.Period(tag);
  if (tag.periodMinutes == 0) return HistoryOutcome::Unanswered;
  return ProfileReader(client_, tag, interval, sink, progress).Read();
}

// A meter that refuses one archive may have the next one; one that does not even tell its clock is not asked any more.
HistoryOutcome HistoryReader::ReadArchive(const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                                          const HistoryProgress& progress) {
  progress(0, 0);
  const HistoryListing listing = client_.List(tag.definition.id, interval);
  bool answered = listing.answered;
  std::size_t done = 0;
  for (const WallTime time : listing.times) {
    if (platform::Interrupted()) return HistoryOutcome::Interrupted;
    const HistoryReading reading = client_.Read(tag, time);
    sink(reading.record);
    progress(++done, listing.times.size());
    answered = answered && reading.answered;
    if (reading.silent) break;
  }
  return answered ? HistoryOutcome::Complete : HistoryOutcome::Unanswered;
}

}  // namespace ostrel::host
