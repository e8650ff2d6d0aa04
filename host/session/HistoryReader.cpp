#include "host/session/HistoryReader.h"

#include <algorithm>

#include "Protocol/link/ChannelRecord.h"
#include "Protocol/model/SharedFlag.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kFirstProfile = 40108;
constexpr std::uint32_t kFirstCumulative = 40120;
constexpr std::uint32_t kTagsOfClass = 36;
constexpr std::uint32_t kTagsOfEnergy = 9;
constexpr std::uint32_t kMostTariffs = 8;

// Archives list only what lies within their depth, so these hold all of them.
constexpr WallInterval kAllTimes{.from = 0, .to = 32'503'680'000};  // 1970 to 3000

HistoryKind KindOfClass(std::uint32_t place) {
  constexpr HistoryKind kKinds[] = {HistoryKind::Day, HistoryKind::Month, HistoryKind::Year};
  return kKinds[place % std::size(kKinds)];
}

HistoryTag DescribeEnergy(const TagDefinition& definition, std::uint32_t first) {
  const std::uint32_t place = definition.id - first;
  const std::uint32_t tariff = place % kTagsOfEnergy;
  return {.definition = definition,
          .kind = KindOfClass(place / kTagsOfClass),
          .tariff = static_cast<std::uint8_t>(tariff == kMostTariffs ? 0 : tariff + 1),
          .unit = place % kTagsOfClass / kTagsOfEnergy < 2 ? "kWh" : "kvarh",
          .periodMinutes = 0};
}

/// A profile keeps so many records, so nothing older needs to be asked for.
WallInterval Clipped(WallInterval interval, std::uint32_t depth, std::uint32_t periodMinutes) {
  const WallTime newest = std::min(interval.to, ComputersWallTime() + kDaySeconds);
  const WallTime oldest = newest - WallTime{depth} * periodMinutes * kMinuteSeconds;
  return {.from = std::max(interval.from, std::min(oldest, interval.to)), .to = interval.to};
}

WallTime WholeMinute(WallTime time) { return time - time % kMinuteSeconds; }

std::size_t RecordsOf(WallInterval interval, std::uint32_t periodMinutes) {
  if (interval.to <= interval.from) return 0;
  return static_cast<std::size_t>((interval.to - interval.from) / (periodMinutes * kMinuteSeconds));
}

}  // namespace

HistoryTag DescribeHistoryTag(const TagDefinition& definition, std::optional<std::uint32_t> tariff) {
  if (definition.id >= kFirstProfile && definition.id < kFirstCumulative) {
    return {.definition = definition,
            .kind = HistoryKind::Profile,
            .tariff = 0,
            .unit = (definition.id - kFirstProfile) % 4 < 2 ? "kW" : "kvar",
            .periodMinutes = 0};
  }
  HistoryTag tag = DescribeEnergy(definition, definition.id < kFirstProfile ? kFirstHdaId : kFirstCumulative);
  if (tariff) tag.tariff = static_cast<std::uint8_t>(*tariff);
  return tag;
}

HistoryOutcome HistoryReader::Read(HistoryTag& tag, const std::optional<WallTime>& from, const std::optional<WallTime>& to,
                                   const HistorySink& sink, const HistoryProgress& progress) {
  if (tag.kind != HistoryKind::Profile) {
    return ReadArchive(tag, {.from = from.value_or(kAllTimes.from), .to = to.value_or(kAllTimes.to)}, sink, progress);
  }
  // Some types name profiles that their meters do not keep.
  const std::uint32_t depth = channel_.Protocol().GetHistoryDepth(meter_.type.id, tag.definition.id);
  if (depth == 0) return HistoryOutcome::Complete;
  std::uint32_t period = 0;
  if (channel_.Protocol().GetHistoryInterval(tag.definition.id, meter_.index, &period) != 0) return HistoryOutcome::Unanswered;
  tag.periodMinutes = period;
  const WallTime now = WholeMinute(ComputersWallTime());
  // The end is left out of a listing: with a second more the record that ends right now is in it.
  WallInterval interval{.from = 0, .to = to.value_or(now + 1)};
  // Listings begin with the whole minute, and days of one are put together here.
  interval.from = WholeMinute(from.value_or(WholeMinute(interval.to) - kDaySeconds + kMinuteSeconds));
  return ReadProfile(tag, Clipped(interval, depth, period), sink, progress);
}

HistoryOutcome HistoryReader::ReadProfile(const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                                          const HistoryProgress& progress) {
  const std::size_t expected = std::max<std::size_t>(RecordsOf(interval, tag.periodMinutes), 1);
  std::size_t done = 0;
  progress(done, expected);
  for (WallTime at = interval.from; at < interval.to; at += kDaySeconds) {
    if (platform::Interrupted()) return HistoryOutcome::Interrupted;
    const Listing listing = List(tag, {.from = at, .to = std::min(at + kDaySeconds, interval.to)});
    for (const FILETIME& time : listing.times) {
      HistoryRecord record;
      (void)ReadValue(tag, time, record);
      sink(record);
    }
    done = std::max(done + listing.times.size(), RecordsOf({.from = interval.from, .to = at + kDaySeconds}, tag.periodMinutes));
    progress(std::min(done, expected), expected);
    if (!listing.answered || LinkIsDown()) return HistoryOutcome::Unanswered;
  }
  return HistoryOutcome::Complete;
}

HistoryOutcome HistoryReader::ReadArchive(const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                                          const HistoryProgress& progress) {
  progress(0, 0);
  const Listing listing = List(tag, interval);
  bool answered = listing.answered;
  for (std::size_t i = 0; i < listing.times.size(); ++i) {
    if (platform::Interrupted()) return HistoryOutcome::Interrupted;
    HistoryRecord record;
    answered = ReadValue(tag, listing.times[i], record) && answered;
    sink(record);
    progress(i + 1, listing.times.size());
  }
  return answered ? HistoryOutcome::Complete : HistoryOutcome::Unanswered;
}

HistoryReader::Listing HistoryReader::List(const HistoryTag& tag, WallInterval interval) {
  FILETIME from = ToFileTime(interval.from);
  FILETIME to = ToFileTime(interval.to);
  TimestampList list{};
  Listing listing;
  listing.answered =
      channel_.Protocol().GetHistoryTimestamps(meter_.type.id, tag.definition.id, meter_.index, &from, &to, &list) != 0;
  listing.times.assign(list.Times.begin(), list.Times.end());
  std::reverse(listing.times.begin(), listing.times.end());
  return listing;
}

bool HistoryReader::ReadValue(const HistoryTag& tag, const FILETIME& time, HistoryRecord& record) {
  const HistoryItem item{.hostWord0_ = 0,
                         .DeviceIndex = meter_.index,
                         .hostWord8_ = 0,
                         .MeterType = meter_.type.id,
                         .TagId = tag.definition.id,
                         .Tariff = tag.tariff};
  HistoryValue value{};
  value.Value.vt = static_cast<VARTYPE>(tag.definition.DataType());
  const bool answered = channel_.Protocol().ReadHistoryValue(meter_.type.id, &item, &time, &value) != 0;
  record = {.time = FromFileTime(time), .value = std::nullopt, .quality = value.Quality};
  // Before an archive is asked the plug-in may fail without a word on quality.
  if (!answered && record.quality == 0) record.quality = kHistoryBad;
  const bool hasValue = value.Quality == kHistoryGood || (answered && value.Quality == kHistoryBad);
  if (hasValue) record.value = value.Value.vt == VT_R8 ? value.Value.dblVal : double{value.Value.fltVal};
  return answered;
}

bool HistoryReader::LinkIsDown() {
  const PollGuard guard(channel_.Protocol());
  return LoadFlag(channel_.Protocol().GetChannel()->Devices[meter_.index].LinkDown) != 0;
}

}  // namespace ostrel::host
