#include "station/collect/MeterFill.h"

#include <algorithm>
#include <limits>

namespace ostrel::station {
namespace {

constexpr std::int64_t kDay = 86400;
/// A record is asked for when its interval has been over for so long by the meter's own clock.
constexpr std::int64_t kSettleSeconds = 60;
/// The beginning of a meter's memory is felt for in such steps.
constexpr std::int64_t kProbeSeconds = kDay / 2;
/// A bad record of an interval this old stays as it is.
constexpr std::int64_t kBadRetrySeconds = kDay;
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

bool IsCalendar(const host::HistoryTag& tag) { return tag.kind != host::HistoryKind::Profile; }

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

// The tags of a profile have their records together: the first of them finds out where they begin.
const MeterFill::TagFill& MeterFill::Leader(const TagFill& fill) const {
  for (const TagFill& other : tags_) {
    if (!IsCalendar(other.tag) && other.tag.definition.id / 4 == fill.tag.definition.id / 4) return other;
  }
  return fill;
}

void MeterFill::FollowLeader(TagFill& fill) const {
  const TagFill& leader = Leader(fill);
  if (&leader == &fill || IsCalendar(fill.tag) || leader.known.empty() || leader.phase != Phase::Fetch) return;
  fill.behind = 0;
  const Expectation& known =
      fill.known.empty() || fill.known.back().period != fill.period ? leader.known.back() : leader.known.front();
  if (known.period != fill.period || (!fill.known.empty() && fill.known.front().since <= known.since)) return;
  fill.phase = Phase::Search;
  fill.cursor = known.since;
}

std::optional<Portion> MeterFill::PlanSearch(TagFill& fill, std::int64_t now) const {
  if (IsCalendar(fill.tag)) {
    if (fill.cursor > now) return std::nullopt;
    return Portion{.kind = PortionKind::Search, .from = 0, .to = now + kDay, .deadline = now + SureSpan(1, fill.period)};
  }
  const TagFill& leader = Leader(fill);
  if (&leader != &fill && leader.phase != Phase::Fetch) return std::nullopt;
  Portion portion{.deadline = now};
  if (fill.phase == Phase::Halve) {
    portion.kind = PortionKind::Probe;
    portion.from = (fill.low + fill.high) / 2;
    portion.from -= portion.from % fill.period;
    portion.to = portion.from + 1;
    return portion;
  }
  portion.kind = PortionKind::Search;
  portion.from = fill.cursor;
  portion.to = std::min(portion.from + kPortionRecords * fill.period, now - kSettleSeconds);
  portion.deadline = portion.from + SureSpan(fill.depth, fill.period);
  if (portion.from >= portion.to) return std::nullopt;
  return portion;
}

// Long without power, a meter remembers times that lie further back than its memory is long.
std::optional<Portion> MeterFill::PlanBehind(const TagFill& fill) const {
  if (fill.behind == 0 || fill.behind < fill.low || &Leader(fill) != &fill) return std::nullopt;
  return Portion{.kind = PortionKind::Probe,
                 .from = fill.behind,
                 .to = fill.behind + 1,
                 .deadline = std::numeric_limits<std::int64_t>::max(),
                 .idle = true};
}

std::optional<Portion> MeterFill::PlanFetch(TagFill& fill, const std::vector<StoredRecord>& stored, std::int64_t start,
                                            std::int64_t end) const {
  const std::vector<std::int64_t> expected = ExpectedTimes(fill.known, start, end);
  std::vector<std::int64_t> missing = MissingTimes(expected, stored, kNever);
  fill.cursor = missing.empty() ? std::max(fill.cursor, end) : missing.front();
  if (fill.badToo) missing = MissingTimes(expected, stored, end - kBadRetrySeconds);
  std::erase_if(missing, [&](std::int64_t time) { return time >= fill.emptyFrom && time < fill.emptyTo; });
  if (missing.empty()) return std::nullopt;
  Portion portion{.from = missing.front(), .to = missing.front() + 1, .missing = missing.size()};
  portion.deadline = missing.front() + SureSpan(fill.depth, fill.period);
  const std::int64_t most = IsCalendar(fill.tag) ? end + kDay : missing.front() + kPortionRecords * fill.period;
  for (const std::int64_t time : missing) {
    if (time < most) portion.to = time + 1;
  }
  return portion;
}

std::optional<Portion> MeterFill::Plan(Archive& archive, MeterKey key, TagFill& fill, std::int64_t now) {
  if (fill.stalled || fill.busy) return std::nullopt;
  FollowLeader(fill);
  if (fill.phase != Phase::Fetch) return PlanSearch(fill, now);
  const std::int64_t end = now - kSettleSeconds;
  const std::int64_t start = fill.badToo ? std::min(fill.cursor, end - kBadRetrySeconds) : fill.cursor;
  const std::vector<StoredRecord> stored = archive.Records(key, fill.tag.definition.id, start, now + kDay);
  for (const StoredRecord& record : stored) fill.newestKnown = std::max(fill.newestKnown, record.time);
  const std::optional<Portion> fetch = PlanFetch(fill, stored, start, end);
  return fetch ? fetch : PlanBehind(fill);
}

std::optional<Portion> MeterFill::Next(Archive& archive, MeterKey key, std::int64_t now) {
  std::optional<Portion> best;
  for (std::size_t i = 0; i < tags_.size(); ++i) {
    std::optional<Portion> portion = Plan(archive, key, tags_[i], now);
    if (!portion) continue;
    portion->tag = i;
    if (!best || portion->deadline < best->deadline) best = portion;
  }
  return best;
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
  host::HistoryReader reader(channel_, meter_);
  const auto sink = [&](const host::HistoryRecord& record) {
    const std::int64_t time = RecordTime(fill.tag, record.time);
    const bool good = record.quality == host::kHistoryGood && record.value;
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
  result.answered = outcome == host::HistoryOutcome::Complete;
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
