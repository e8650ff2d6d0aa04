#include "station/collect/MeterFill.h"

#include <algorithm>
#include <limits>

#include "Protocol/object/ChannelRecord.h"

namespace ostrel::station {
namespace {

constexpr std::int64_t kDay = 86400;
/// A record is asked for when its interval has been over for so long by the meter's own clock.
constexpr std::int64_t kSettleSeconds = 60;
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

bool MeterFill::BeginCheck(Archive& archive, MeterKey key) {
  for (TagFill& fill : tags_) {
    if (!LearnPeriod(fill)) return false;
    const bool first = fill.known.empty();
    fill.known = archive.Expectations(key, fill.tag.definition.id);
    const bool searched = fill.searching;
    fill.searching = fill.known.empty() || fill.known.back().period != fill.period;
    if (fill.searching && !searched) fill.cursor = 0;
    if (!fill.searching && (first || searched)) fill.cursor = fill.known.front().since;
    fill.badToo = true;
    fill.stalled = false;
  }
  return true;
}

// Nothing that another tag of the same profile did not find needs to be looked for.
std::int64_t MeterFill::SearchStart(const TagFill& fill, std::int64_t now) const {
  std::int64_t start = now - fill.depth * fill.period;
  if (!fill.known.empty()) start = std::max(start, fill.newestKnown + 1);
  for (const TagFill& other : tags_) {
    const bool sibling = &other != &fill && other.tag.definition.id / 4 == fill.tag.definition.id / 4 && !IsCalendar(other.tag);
    if (sibling && !other.searching && !other.known.empty()) start = std::max(start, other.known.back().since);
  }
  return start - start % fill.period;
}

Portion MeterFill::Search(TagFill& fill, std::int64_t now) const {
  Portion portion{.searching = true};
  if (IsCalendar(fill.tag)) {
    portion.to = now + kDay;
    portion.deadline = now + SureSpan(1, fill.period);
    return portion;
  }
  portion.from = std::max(fill.cursor, SearchStart(fill, now));
  portion.to = std::min(portion.from + kPortionRecords * fill.period, now - kSettleSeconds);
  portion.deadline = portion.from + SureSpan(fill.depth, fill.period);
  return portion;
}

std::optional<Portion> MeterFill::Plan(Archive& archive, MeterKey key, TagFill& fill, std::int64_t now) {
  const std::int64_t tag = fill.tag.definition.id;
  const std::int64_t end = now - kSettleSeconds;
  if (fill.stalled || fill.busy) return std::nullopt;
  const std::int64_t start = fill.badToo && !fill.searching ? std::min(fill.cursor, end - kBadRetrySeconds) : fill.cursor;
  const std::vector<StoredRecord> stored = archive.Records(key, tag, start, now + kDay);
  for (const StoredRecord& record : stored) fill.newestKnown = std::max(fill.newestKnown, record.time);
  if (fill.searching) {
    const Portion portion = Search(fill, now);
    if (portion.from >= portion.to || (IsCalendar(fill.tag) && fill.cursor > now)) return std::nullopt;
    return portion;
  }
  const std::vector<std::int64_t> expected = ExpectedTimes(fill.known, start, end);
  std::vector<std::int64_t> missing = MissingTimes(expected, stored, kNever);
  fill.cursor = missing.empty() ? std::max(fill.cursor, end) : missing.front();
  if (fill.badToo) missing = MissingTimes(expected, stored, end - kBadRetrySeconds);
  if (missing.empty()) return std::nullopt;
  Portion portion{.from = missing.front(), .to = missing.front() + 1, .missing = missing.size()};
  portion.deadline = missing.front() + SureSpan(fill.depth, fill.period);
  const std::int64_t most = IsCalendar(fill.tag) ? now + kDay : missing.front() + kPortionRecords * fill.period;
  for (const std::int64_t time : missing) {
    if (time < most) portion.to = time + 1;
  }
  return portion;
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
  FillResult result{.tag = fill.tag.definition.id, .name = fill.tag.definition.name, .unit = fill.tag.unit, .records = {}, .expectation = {}, .portion = portion};
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
  if (result.portion.searching) {
    if (!result.records.empty()) {
      result.expectation = Expectation{.since = result.records.front().time, .period = fill.period};
      MarkRest(fill, now, result);
    }
    return;
  }
  if (result.answered) MarkRest(fill, now, result);
}

// What was asked for and did not come.
void MeterFill::MarkRest(const TagFill& fill, std::int64_t now, FillResult& result) const {
  std::int64_t newest = fill.newestKnown;
  for (const StoredRecord& record : result.records) newest = std::max(newest, record.time);
  std::vector<Expectation> known = fill.known;
  if (result.expectation) known.push_back(*result.expectation);
  const std::int64_t from = result.expectation ? result.expectation->since : result.portion.from;
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
  fill.badToo = false;
  fill.stalled = result.records.empty() && !result.portion.searching;
  for (const StoredRecord& record : result.records) fill.newestKnown = std::max(fill.newestKnown, record.time);
  if (result.expectation) {
    fill.known.push_back(*result.expectation);
    fill.searching = false;
    fill.cursor = fill.known.front().since;
  } else if (result.portion.searching && result.answered) {
    fill.cursor = result.portion.to;
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
