#include "host/session/HistoryClient.h"

#include <algorithm>

#include "Protocol/link/ChannelRecord.h"
#include "Protocol/model/SharedFlag.h"
#include "host/session/Channel.h"

namespace ostrel::host {
namespace {

/// Where a search for an hour that is not there leaves the meter's record.
constexpr std::uint16_t kNoHeader = 0xFFFF;

/// A bad record has a value only where a profile's interval was not whole: what was measured of it is known. Everywhere else, and
/// where the meter's constant is not known, the zero that remains is none.
bool HasValue(const HistoryTag& tag, std::uint32_t quality, bool constantKnown) {
  return quality == kHistoryGood || (tag.kind == HistoryKind::Profile && quality == kHistoryBad && constantKnown);
}

double NumberOf(const HistoryValue& value) { return value.Value.vt == VT_R8 ? value.Value.dblVal : double{value.Value.fltVal}; }

}  // namespace

std::uint32_t HistoryClient::Depth(const HistoryTag& tag) { return protocol_.GetHistoryDepth(meter_type_, tag.definition.id); }

std::uint32_t HistoryClient::Period(const HistoryTag& tag) {
  std::uint32_t period = 0;
  return protocol_.GetHistoryInterval(tag.definition.id, device_, &period) == 0 ? period : 0;
}

// No pass comes in between: after a record that the meter did not give, a reading of its would bring the link up again, and the
// record would look blank.
HistoryListing HistoryClient::List(std::uint32_t tagId, WallInterval interval) {
  const PollGuard guard(protocol_);
  FILETIME from = ToFileTime(interval.from);
  FILETIME to = ToFileTime(interval.to);
  TimestampList list{};
  HistoryListing listing;
  const bool done = protocol_.GetHistoryTimestamps(meter_type_, tagId, device_, &from, &to, &list) != 0;
  std::transform(list.Times.begin(), list.Times.end(), std::back_inserter(listing.times), FromFileTime);
  std::ranges::sort(listing.times);
  DeviceEntry& meter = protocol_.GetChannel()->Devices[device_];
  listing.answered = done && LoadFlag(meter.LinkDown) == 0;
  listing.hourFound = meter.ProfileHeaderAddress != kNoHeader;
  constantKnown_ = meter.MeterConstant != 0;
  return listing;
}

HistoryReading HistoryClient::Read(const HistoryTag& tag, WallTime time) {
  const HistoryItem item{.hostWord0_ = 0,
                         .DeviceIndex = device_,
                         .hostWord8_ = 0,
                         .MeterType = meter_type_,
                         .TagId = tag.definition.id,
                         .Tariff = tag.tariff};
  const FILETIME asked = ToFileTime(time);
  HistoryValue value{};
  value.Value.vt = static_cast<VARTYPE>(tag.definition.DataType());
  const bool answered = protocol_.ReadHistoryValue(meter_type_, &item, &asked, &value) != 0;
  // Before an archive is asked the plug-in fails without a word on quality.
  const bool silent = !answered && value.Quality == 0;
  HistoryReading reading{.record = {.time = time, .value = std::nullopt, .quality = silent ? kHistoryBad : value.Quality},
                         .answered = answered,
                         .silent = silent};
  if (HasValue(tag, value.Quality, constantKnown_)) reading.record.value = NumberOf(value);
  return reading;
}

}  // namespace ostrel::host
