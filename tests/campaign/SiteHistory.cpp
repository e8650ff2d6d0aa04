// What history clients ask, each on a thread of its own, beside the poll thread and each other.
#include <algorithm>
#include <cmath>

#include "Protocol/model/HistoryQuality.h"
#include "Protocol/history/HistoryTime.h"
#include "Protocol/model/TagCatalogue.h"
#include "simulator/HistoryExpectation.h"
#include "tests/campaign/Site.h"
#include "tests/campaign/Violation.h"

namespace ostrel::campaign {
namespace {

constexpr std::uint32_t kFirstProfile = 40108;
constexpr std::uint32_t kUntouched = 7;
/// Seconds between 1601 and 1970.
constexpr std::int64_t kEpochSeconds = 11'644'473'600;

FILETIME FromMeterTime(sim::MeterTime time) {
  const auto ticks = static_cast<std::uint64_t>((time + kEpochSeconds) * 10'000'000);
  return {.dwLowDateTime = static_cast<DWORD>(ticks), .dwHighDateTime = static_cast<DWORD>(ticks >> 32)};
}

sim::MeterTime ToMeterTime(const FILETIME& time) { return static_cast<sim::MeterTime>(Ticks(time) / 10'000'000) - kEpochSeconds; }

std::string TimeText(sim::MeterTime time) {
  const sim::CivilTime civil = sim::ToCivil(time);
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", civil.year, civil.month, civil.day, civil.hour, civil.minute,
                civil.second);
  return text;
}

bool NearEnough(double expected, double shown) { return std::fabs(expected - shown) <= std::fabs(expected) * 1e-6 + 1e-9; }

}  // namespace

Moment Site::MomentOf(std::size_t meter) const {
  sim::Meter& stands = *line_.Meters()[meter];
  const sim::MeterView view = stands.View(time_.True());
  return {.meter = &stands, .settings = view.settings, .wall = view.wall, .now = view.now};
}

void Site::AskHistory(const Operation& operation) {
  const auto device = DeviceOf(operation.meter);
  if (!device || plan_.meters[operation.meter].twin) return;
  switch (operation.kind) {
    case OperationKind::ListProfile:
      return ListProfile(operation, *device);
    case OperationKind::ReadArchive:
      return ReadArchive(operation, *device);
    default:
      return AskTimes(operation, *device);
  }
}

void Site::ListProfile(const Operation& operation, std::uint32_t device) {
  const std::uint32_t type = plan_.meters[operation.meter].type;
  const std::uint32_t tag = kFirstProfile + static_cast<std::uint32_t>(operation.salt % 4) +
                            (sim::FindMeterType(type)->profiles > 1 && operation.salt % 8 > 4 ? 4U : 0U);
  const Moment before = MomentOf(operation.meter);
  const sim::MeterTime end = before.wall.Shown(before.now) - static_cast<sim::MeterTime>(operation.salt / 16 % (6 * 3600));
  const sim::MeterTime start = end - 600 - static_cast<sim::MeterTime>(operation.salt / 64 % (30 * 3600));
  FILETIME from = FromMeterTime(start);
  FILETIME to = FromMeterTime(end);
  TimestampList list{};
  const std::uint32_t changes = tableChanges_;
  const std::uint32_t exchanges = line_.Exchanges();
  const std::uint32_t listed = protocol_->GetHistoryTimestamps(type, tag, device, &from, &to, &list);
  if (changes != tableChanges_) return;
  for (std::uint32_t i = 1; i < list.Times.Size(); ++i) {
    if (Ticks(list.Times[i]) >= Ticks(list.Times[i - 1]))
      Violate(Invariant::RightRecords, "a listing has " + TimeText(ToMeterTime(list.Times[i])) + " twice or in the wrong place");
  }
  for (const FILETIME& time : list.Times) {
    const HistoryItem item{.hostWord0_ = 0, .DeviceIndex = device, .hostWord8_ = 0, .MeterType = type, .TagId = tag, .Tariff = 0};
    HistoryValue value{};
    value.Quality = kUntouched;
    protocol_->ReadHistoryValue(type, &item, &time, &value);
    if (changes != tableChanges_) return;
    if (value.Quality == kHistoryGood) CheckPower(operation.meter, tag, time, value);
  }
  // Who is busy too often may not have told a record, and the walk ended there.
  const bool willing = plan_.meters[operation.meter].spec.busyEvery == 0;
  if (listed != 0 && willing && !line_.Disturbed(exchanges)) CheckComplete(operation.meter, tag, {ToMeterTime(from), ToMeterTime(to)}, list);
}

// A record time is what the meter's clock showed; a shown time may stand for two.
void Site::CheckPower(std::size_t meter, std::uint32_t tag, const FILETIME& time, const HistoryValue& value) {
  Moment now = MomentOf(meter);
  const std::size_t profile = (tag - kFirstProfile) / 4;
  const sim::MeterTime shown = ToMeterTime(time);
  std::string expectations;
  for (const std::uint8_t period : {now.settings.profileMinutes[profile], plan_.meters[meter].spec.profileMinutes[profile], std::uint8_t{10}, std::uint8_t{30}}) {
    now.settings.profileMinutes[profile] = period;
    for (const sim::MeterTime end : {shown, shown - sim::kHour, shown + sim::kHour}) {
      if (end != now.wall.TimeOf(shown) && now.wall.Shown(end) != shown && now.wall.Shown(end - 60) + 60 != shown) continue;
      const auto expected = sim::ExpectedProfile(now.View(), tag, end);
      if (!expected || !expected->whole) continue;
      if (NearEnough(expected->value, double{value.Value.fltVal})) return;
      expectations += " " + std::to_string(expected->value);
    }
  }
  Violate(Invariant::RightRecords, "meter " + std::to_string(plan_.meters[meter].spec.address) + ", tag " + std::to_string(tag) + ", " +
                                       TimeText(shown) + ": " + std::to_string(value.Value.fltVal) + ", and the meter has" +
                                       (expectations.empty() ? " none" : expectations));
}

// No record between two listed ones, before the first or behind the last is left out. Around the changes of the clock, what is
// listed when is the host program's matter.
void Site::CheckComplete(std::size_t meter, std::uint32_t tag, sim::Period asked, const TimestampList& list) {
  const Moment now = MomentOf(meter);
  if (now.wall.IsSummer(asked.from - sim::kDay) != now.wall.IsSummer(asked.to + sim::kDay) || asked.from >= asked.to) return;
  const auto shift = now.wall.Shown(asked.from) - asked.from;
  std::vector<sim::MeterTime> held = sim::ExpectedProfileTimes(now.View(), tag, {asked.from - shift, asked.to - shift});
  std::set<sim::MeterTime> listed;
  for (const FILETIME& time : list.Times) listed.insert(ToMeterTime(time) - shift);
  for (const sim::MeterTime end : held) {
    if (end > now.now || listed.contains(end)) continue;
    Violate(Invariant::RightRecords, "the record of " + TimeText(end + shift) + " was left out of a listing of tag " + std::to_string(tag) +
                                         " of meter " + std::to_string(plan_.meters[meter].spec.address));
  }
}

void Site::ReadArchive(const Operation& operation, std::uint32_t device) {
  const std::uint32_t type = plan_.meters[operation.meter].type;
  std::uint32_t tag = kFirstHdaId + static_cast<std::uint32_t>(operation.salt % kHdaTagCount);
  if (!SupportsHdaTag(type, tag) || (tag >= kFirstProfile && tag < kFirstProfile + 12)) tag = kFirstHdaId + 36;
  FILETIME from = FromMeterTime(0);
  FILETIME to = FromMeterTime(sim::FromCivil({.year = 2030}));
  TimestampList list{};
  const std::uint32_t changes = tableChanges_;
  protocol_->GetHistoryTimestamps(type, tag, device, &from, &to, &list);
  for (std::uint32_t i = 0; i < std::min<std::uint32_t>(list.Times.Size(), 3); ++i) {
    const FILETIME time = list.Times[(i * 7) % list.Times.Size()];
    const HistoryItem item{.hostWord0_ = 0, .DeviceIndex = device, .hostWord8_ = 0, .MeterType = type, .TagId = tag,
                           .Tariff = static_cast<std::uint8_t>(((tag - (tag < 40120 ? 40000 : 40120)) % 9 + 1) % 9)};
    HistoryValue value{};
    value.Quality = kUntouched;
    const Moment before = MomentOf(operation.meter);
    protocol_->ReadHistoryValue(type, &item, &time, &value);
    if (changes != tableChanges_) return;
    if (value.Quality != kHistoryGood) continue;
    const double shown = tag < 40120 ? double{value.Value.fltVal} : value.Value.dblVal;
    std::string expectations;
    for (const Moment& moment : {before, MomentOf(operation.meter)}) {
      const auto expected = sim::ExpectedArchive(moment.View(), tag, ToMeterTime(time));
      if (!expected || NearEnough(*expected, shown)) return;
      expectations += " " + std::to_string(*expected);
    }
    Violate(Invariant::RightRecords, "archive tag " + std::to_string(tag) + ", " + TimeText(ToMeterTime(time)) + ": " +
                                         std::to_string(shown) + ", and the meter has" + expectations);
  }
}

void Site::AskTimes(const Operation& operation, std::uint32_t device) {
  const std::uint32_t type = plan_.meters[operation.meter].type;
  const std::uint32_t tag = kFirstHdaId + static_cast<std::uint32_t>(operation.salt % kHdaTagCount);
  std::uint32_t period = 0;
  protocol_->GetHistoryInterval(tag, device, &period);
  FILETIME time = FromMeterTime(ToMeterTime(FromMeterTime(MomentOf(operation.meter).now / sim::kDay * sim::kDay)));
  protocol_->CheckHistoryTimestamp(type, tag, device, &time);
  char name[260] = {};
  static_cast<IBrowser&>(*protocol_).GetTagName(tag, type, 1, name, 0);
}

}  // namespace ostrel::campaign
