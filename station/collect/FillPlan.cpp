// What to read next of a meter's memory: the search for its beginning, what is missing, and what lies behind.
#include <algorithm>

#include "station/collect/MeterFill.h"

namespace ostrel::station {
namespace {

constexpr std::int64_t kDay = 86400;
/// A record is asked for when its interval has been over for so long by the meter's own clock.
constexpr std::int64_t kSettleSeconds = 60;
/// A bad record of an interval this old stays as it is.
constexpr std::int64_t kBadRetrySeconds = kDay;

}  // namespace

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
  return Portion{.kind = PortionKind::Probe, .from = fill.behind, .to = fill.behind + 1, .deadline = kNever, .idle = true};
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

}  // namespace ostrel::station
