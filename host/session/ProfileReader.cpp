#include "host/session/ProfileReader.h"

#include <algorithm>
#include <utility>

#include "Protocol/model/TagCatalogue.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

/// A meter's years have two digits.
constexpr WallTime kFirstTime = 946'684'800;      // 2000-01-01
constexpr WallTime kLastTime = 4'102'444'800;     // 2100-01-01
constexpr WallTime kMostHours = 6;                // of a listing
constexpr WallTime kPeriodsOfSixHours = 30 * 60;  // seconds; shorter ones get fewer hours, so that listings take as long

/// A record of the hour that runs at midnight still belongs to the day before.
constexpr WallTime kDayWithMidnight = kDaySeconds + 1;

/// The changes of summer time are an hour each, and what they do to times reaches as far again.
constexpr WallTime kAroundChange = 2 * kHourSeconds;

/// Hours before the first one that a search is made for. An hour that the meter's clock showed twice is there twice, and the
/// earlier block is found from before both only.
constexpr WallTime kSearchBefore = 3 * kHourSeconds;

WallTime HoursOfPiece(WallTime period) {
  if (kHourSeconds % period != 0) return 1;
  return std::clamp<WallTime>(kMostHours * period / kPeriodsOfSixHours, 1, kMostHours);
}

/// Records that a meter's clock has not come to yet are not there. Its day is told by any daily archive, of which it makes no
/// difference whether it is kept. None when the clock shows no date.
std::optional<WallTime> EndOfMetersDay(HistoryClient& client) {
  const HistoryListing days = client.List(kFirstHdaId, kAllTimes);
  if (days.times.empty()) return std::nullopt;
  return days.times.back() + kDayWithMidnight;
}

}  // namespace

ProfileReader::ProfileReader(HistoryClient& client, const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                             const HistoryProgress& progress)
    : client_(client),
      tag_(tag),
      interval_{.from = std::max(interval.from, kFirstTime),
                .to = interval.from == interval.to ? interval.to + 1 : std::min(interval.to, kLastTime + 1)},
      sink_(sink),
      progress_(progress),
      period_(WallTime{tag.periodMinutes} * kMinuteSeconds),
      end_(RecordFrom(interval_.to)),
      given_(interval_.from - 1),
      latest_(given_) {}

WallTime ProfileReader::HourOf(WallTime time) { return (time - 1) / kHourSeconds * kHourSeconds; }

WallTime ProfileReader::RecordFrom(WallTime time) const {
  const WallTime hour = HourOf(time);
  return hour + (time - hour + period_ - 1) / period_ * period_;
}

HistoryOutcome ProfileReader::Read() {
  const WallTime first = FirstRecordOf(HourOf(interval_.from));
  if (const auto end = EndOfMetersDay(client_)) end_ = std::min(end_, RecordFrom(*end));
  Tell(0);
  if (first < end_ && !SearchFromBefore()) return HistoryOutcome::Unanswered;
  const bool wide = end_ - first > HoursOfMemory() * kHourSeconds;
  const HistoryOutcome outcome = wide ? ReadBack(first) : ReadStretch({.from = first, .to = end_}, sink_);
  if (outcome != HistoryOutcome::Complete) return outcome;
  return latest_ + period_ < RecordFrom(interval_.to) ? HistoryOutcome::MemoryEnded : HistoryOutcome::Complete;
}

HistoryOutcome ProfileReader::ReadBack(WallTime first) {
  const WallTime memory = HoursOfMemory();
  const WallTime withHeaders = client_.Depth(tag_) / (RecordsOfHour() + 1);
  std::vector<Records> stretches;
  HistoryOutcome outcome = HistoryOutcome::Complete;
  WallTime hours = 0;
  for (WallTime end = end_; end > first && hours < memory && outcome == HistoryOutcome::Complete;) {
    const WallTime last = HourOf(end - period_);
    const WallTime begin =
        std::max(first, FirstRecordOf(last - (HoursOfListing(last - kMostHours * kHourSeconds, last) - 1) * kHourSeconds));
    Records& records = stretches.emplace_back();
    given_ = interval_.from - 1;
    WallTime hour = -1;
    outcome = ReadStretch({.from = begin, .to = end}, [&](const HistoryRecord& record) {
      records.push_back(record);
      if (std::exchange(hour, HourOf(record.time)) != HourOf(record.time)) ++hours;
    });
    if (hours >= withHeaders && records.empty()) break;
    end = begin;
  }
  for (auto stretch = stretches.rbegin(); stretch != stretches.rend(); ++stretch) {
    for (const HistoryRecord& record : *stretch) sink_(record);
  }
  return outcome;
}

HistoryOutcome ProfileReader::ReadStretch(WallInterval stretch, const HistorySink& sink) {
  for (WallTime at = stretch.from; at < stretch.to;) {
    if (platform::Interrupted()) return HistoryOutcome::Interrupted;
    const WallInterval piece = Piece(at, stretch.to);
    const HistoryListing listing = client_.List(tag_.definition.id, piece);
    Give(listing, sink);
    if (!listing.answered) return HistoryOutcome::Unanswered;
    const WallTime next = Next(piece, listing);
    Tell(next - at);
    at = next;
  }
  return HistoryOutcome::Complete;
}

void ProfileReader::Tell(WallTime done) {
  done_ += done;
  const std::size_t expected = std::max<std::size_t>(RecordsIn(end_ - RecordFrom(interval_.from)), 1);
  progress_(std::min(RecordsIn(done_), expected), expected);
}

/// No more than the type keeps, nor than the memory's addresses of two bytes can tell apart: each hour takes a header and its
/// records, of eight bytes each. Whether a smaller memory counts the headers among its records is not known: once as many hours
/// came as it then holds, a stretch without any is its end.
WallTime ProfileReader::HoursOfMemory() {
  constexpr WallTime kCells = 0x10000 / 8;
  return std::min<WallTime>(client_.Depth(tag_) / RecordsOfHour(), kCells / (1 + RecordsOfHour()));
}

bool ProfileReader::SearchFromBefore() {
  const WallTime before = FirstRecordOf(HourOf(interval_.from) - kSearchBefore);
  return client_.List(tag_.definition.id, {.from = before, .to = before + period_}).answered;
}

WallTime ProfileReader::HoursOfListing(WallTime first, WallTime last) const {
  return ClockChangesBetween(first - kAroundChange, last + kHourSeconds + kAroundChange) ? 1 : HoursOfPiece(period_);
}

WallInterval ProfileReader::Piece(WallTime at, WallTime end) const {
  const WallTime hour = HourOf(at);
  const WallTime hours = IsFirstOfHour(at) && !oneHour_ ? HoursOfListing(hour, hour + kMostHours * kHourSeconds) : 1;
  return {.from = at, .to = std::min(FirstRecordOf(hour + hours * kHourSeconds), end)};
}

/// Where the next listing begins. One that ended early met a blank record; that is the one behind its last record, unless hours
/// are missing between the two: then the hour is asked for by itself.
WallTime ProfileReader::Next(const WallInterval& piece, const HistoryListing& listing) {
  const WallTime last = listing.times.empty() ? piece.from - period_ : listing.times.back();
  const WallTime behind = std::max(last, piece.from - period_) + period_;
  oneHour_ = false;
  if (behind >= piece.to || !listing.hourFound) return piece.to;
  oneHour_ = IsFirstOfHour(behind) && piece.to > FirstRecordOf(HourOf(behind) + kHourSeconds);
  return oneHour_ ? behind : behind + period_;
}

void ProfileReader::Give(const HistoryListing& listing, const HistorySink& sink) {
  for (const WallTime time : listing.times) {
    if (time <= given_ || time >= interval_.to) continue;
    given_ = time;
    latest_ = std::max(latest_, time);
    sink(client_.Read(tag_, time).record);
  }
}

}  // namespace ostrel::host
