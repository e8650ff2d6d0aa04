#include "station/collect/MeterFill.h"

#include <algorithm>

namespace ostrel::station {
namespace {

constexpr std::int64_t kDay = 86400;

std::int64_t CalendarPeriod(host::HistoryKind kind) {
  switch (kind) {
    case host::HistoryKind::Month:
      return kEveryMonth;
    case host::HistoryKind::Year:
      return kEveryYear;
    default:
      return kEveryDay;
  }
}

// Days are counted back in steps of 24 hours, so beyond a change of the clock a day's record can stand an hour beside midnight.
std::int64_t RecordTime(const host::HistoryTag& tag, std::int64_t time) { return IsCalendar(tag) ? time - time % kDay : time; }

}  // namespace

MeterFill::MeterFill(host::Channel& channel, const host::Meter& meter, std::vector<host::HistoryTag> tags)
    : channel_(channel), meter_(meter) {
  for (host::HistoryTag& tag : tags) {
    const std::uint32_t depth = channel.Protocol().GetHistoryDepth(meter.type.id, tag.definition.id);
    // Some types name archives that their meters do not keep.
    if (depth != 0) tags_.push_back({.tag = std::move(tag), .depth = depth, .known = {}});
  }
}

bool MeterFill::LearnPeriod(TagFill& fill) {
  fill.period = CalendarPeriod(fill.tag.kind);
  if (IsCalendar(fill.tag)) return true;
  std::uint32_t minutes = 0;
  if (channel_.Protocol().GetHistoryInterval(fill.tag.definition.id, meter_.index, &minutes) != 0) return false;
  fill.period = std::int64_t{minutes} * host::kMinuteSeconds;
  return fill.period != 0;
}

bool MeterFill::BeginCheck(Archive& archive, MeterKey key, std::int64_t now) {
  for (TagFill& fill : tags_) {
    if (!LearnPeriod(fill)) return false;
    const bool first = fill.known.empty() && fill.phase == Phase::Fetch;
    fill.known = archive.Expectations(key, fill.tag.definition.id);
    const bool fits = !fill.known.empty() && fill.known.back().period == fill.period;
    if (first || (fits && fill.phase != Phase::Fetch && fill.behind == 0) || (!fits && fill.phase == Phase::Fetch))
      Begin(fill, now);
    fill.badToo = true;
    fill.emptyFrom = fill.emptyTo = 0;
    fill.stalled = false;
  }
  return true;
}

// What was never seen is looked for: an archive as a whole, a profile's beginning by halving, and after a change of the
// period from the last record of the old one.
void MeterFill::Begin(TagFill& fill, std::int64_t now) {
  const bool fits = !fill.known.empty() && fill.known.back().period == fill.period;
  if (!IsCalendar(fill.tag)) {
    fill.high = now - now % fill.period - fill.period;
    fill.low = fill.high - fill.depth * fill.period;
  }
  if (fits) {
    fill.phase = Phase::Fetch;
    fill.cursor = fill.known.front().since;
    fill.behind = IsCalendar(fill.tag) ? 0 : fill.cursor - kProbeSeconds;
    return;
  }
  fill.phase = IsCalendar(fill.tag) || !fill.known.empty() ? Phase::Search : Phase::Halve;
  fill.cursor = 0;
  if (IsCalendar(fill.tag)) return;
  if (!fill.known.empty()) fill.cursor = std::max(fill.low, fill.newestKnown - fill.newestKnown % fill.period + fill.period);
}

FillResult MeterFill::Read(const Portion& portion, std::int64_t now) {
  TagFill& fill = tags_[portion.tag];
  fill.busy = true;
  FillResult result{.tag = fill.tag.definition.id,
                    .name = fill.tag.definition.name,
                    .unit = fill.tag.unit,
                    .records = {},
                    .expectation = {},
                    .portion = portion};
  host::HistoryReader reader(host::HistoryClient(channel_.Protocol(), meter_.type.id, meter_.index));
  const auto sink = [&](const host::HistoryRecord& record) {
    const std::int64_t time = RecordTime(fill.tag, record.time);
    const bool good = record.quality == kHistoryGood && record.value;
    result.records.push_back({.time = time,
                              .utc = UtcOfWall(time),
                              .value = good ? record.value : std::nullopt,
                              .state = good ? RecordState::Good : RecordState::Bad});
  };
  std::optional<host::WallTime> from;
  std::optional<host::WallTime> to;
  // A whole archive is asked for by no interval: its times are the meter's.
  if (!IsCalendar(fill.tag)) from = portion.from, to = portion.to;
  const host::HistoryOutcome outcome = reader.Read(fill.tag, from, to, sink, [](std::size_t, std::size_t) {});
  // Where the memory ended, what lies behind it is not there.
  result.answered = outcome == host::HistoryOutcome::Complete || outcome == host::HistoryOutcome::MemoryEnded;
  Collect(fill, now, result);
  return result;
}

void MeterFill::Collect(const TagFill& fill, std::int64_t now, FillResult& result) const {
  std::erase_if(result.records, [&](const StoredRecord& record) { return record.time < result.portion.from; });
  if (result.portion.kind == PortionKind::Probe) return;
  if (result.portion.kind == PortionKind::Search) {
    if (result.records.empty()) return;
    result.expectation = Expectation{.since = result.records.front().time, .period = fill.period};
    if (!result.answered) return;
  }
  if (result.answered) MarkRest(fill, now, result);
}

// What was asked for and did not come.
void MeterFill::MarkRest(const TagFill& fill, std::int64_t now, FillResult& result) const {
  std::int64_t newest = fill.newestKnown;
  for (const StoredRecord& record : result.records) newest = std::max(newest, record.time);
  std::vector<Expectation> known = fill.known;
  if (result.expectation) known.push_back(*result.expectation);
  const std::int64_t from = result.expectation  ? result.expectation->since
                            : fill.emptyTo != 0 ? fill.emptyFrom
                                                : result.portion.from;
  // A meter that was given another period began its memory anew.
  const std::int64_t began = known.size() > 1 ? known.back().since : 0;
  const std::int64_t sureSince = std::max(now - SureSpan(fill.depth, fill.period), began);
  for (const std::int64_t time : MissingTimes(ExpectedTimes(known, from, result.portion.to), result.records, kNever)) {
    const RecordState state =
        Judge({.time = time, .newestKnown = newest, .sureSince = sureSince, .calendar = IsCalendar(fill.tag)});
    if (state != RecordState::Bad) result.records.push_back({.time = time, .utc = UtcOfWall(time), .value = {}, .state = state});
  }
}

void MeterFill::Kept(const FillResult& result) {
  TagFill& fill = tags_[result.portion.tag];
  fill.busy = false;
  if (result.portion.kind == PortionKind::Probe) return KeptProbe(fill, result);
  fill.stalled = result.records.empty() && !result.answered;
  for (const StoredRecord& record : result.records) fill.newestKnown = std::max(fill.newestKnown, record.time);
  if (result.portion.kind == PortionKind::Fetch) {
    fill.badToo = false;
    const bool empty = result.records.empty() && result.answered;
    if (empty && fill.emptyTo == 0) fill.emptyFrom = result.portion.from;
    if (empty) fill.emptyTo = result.portion.to;
    if (!result.records.empty()) fill.emptyFrom = fill.emptyTo = 0;
    return;
  }
  if (result.expectation) {
    fill.known.push_back(*result.expectation);
    std::sort(fill.known.begin(), fill.known.end(),
              [](const Expectation& left, const Expectation& right) { return left.since < right.since; });
    fill.phase = Phase::Fetch;
    fill.cursor = fill.known.front().since;
    fill.behind = IsCalendar(fill.tag) ? 0 : fill.cursor - kProbeSeconds;
  } else if (result.answered) {
    fill.cursor = result.portion.to;
  }
}

void MeterFill::KeptProbe(TagFill& fill, const FillResult& result) const {
  const bool found = !result.records.empty();
  fill.stalled = !result.answered && !found;
  if (fill.stalled) return;
  if (fill.phase == Phase::Halve) {
    (found ? fill.high : fill.low) = result.portion.from;
    if (fill.high - fill.low > kProbeSeconds) return;
    fill.phase = Phase::Search;
    fill.cursor = fill.low;
    return;
  }
  if (found) {
    fill.phase = Phase::Search;
    fill.cursor = result.portion.from - kProbeSeconds + fill.period;
  } else {
    fill.behind -= kProbeSeconds;
  }
}

void MeterFill::Dropped(const FillResult& result) { tags_[result.portion.tag].busy = false; }

bool MeterFill::Busy() const {
  return std::any_of(tags_.begin(), tags_.end(), [](const TagFill& fill) { return fill.busy; });
}

void Keep(Archive& archive, MeterKey key, const FillResult& result, const std::function<void(const StoredRecord&)>& news) {
  if (result.expectation) archive.Expect(key, result.tag, *result.expectation);
  if (!result.records.empty()) archive.NameTag(key, result.tag, result.name, result.unit);
  for (const StoredRecord& record : result.records) {
    if (archive.Put(key, result.tag, record)) news(record);
  }
}

}  // namespace ostrel::station
