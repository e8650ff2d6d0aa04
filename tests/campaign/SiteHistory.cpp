// What history clients ask, each on a thread of its own, beside the poll thread and each other.
#include <fmt/ranges.h>

#include <algorithm>

#include "Protocol/model/HistoryQuality.h"
#include "Protocol/model/TagCatalogue.h"
#include "host/session/HistoryInterval.h"
#include "tests/campaign/Site.h"
#include "tests/expectation/HistoryExpectation.h"

namespace ostrel::campaign {
namespace {

using host::FromFileTime, host::ToFileTime, host::WallTimeText;

constexpr std::uint32_t kFirstProfile = 40108;
constexpr std::uint32_t kFirstReading = 40120;
constexpr std::uint32_t kUntouched = 7;

/// On these days of the scenarios' year.
bool ClocksChange(sim::MeterTime time) {
  const sim::CivilTime civil = sim::ToCivil(time);
  return (civil.month == 3 && civil.day == 29) || (civil.month == 10 && civil.day == 25);
}

/// The hour of the memory that has the record of the interval that ends then.
sim::MeterTime HourOf(sim::MeterTime end) { return (end - 1) / sim::kHour * sim::kHour; }

HistoryValue ReadValue(Site& site, const HistoryItem& item, FILETIME time) {
  HistoryValue value{.Value = {}, .Quality = kUntouched};
  site.protocol->ReadHistoryValue(item.MeterType, &item, &time, &value);
  return value;
}

}  // namespace

void Site::ListProfile(const Operation& operation, std::uint32_t device) {
  const std::uint32_t type = plan.meters[operation.meter].type;
  const std::uint64_t salt = operation.salt;
  const bool second = sim::FindMeterType(type)->profiles > 1 && salt % 8 > 4;
  const std::uint32_t tag = kFirstProfile + static_cast<std::uint32_t>(salt % 4) + (second ? 4U : 0U);
  const Moment before = MomentOf(*line.meters[operation.meter]);
  const sim::MeterTime end = before.wall.Shown(before.now) - static_cast<sim::MeterTime>(salt / 16 % (6 * 3600));
  FILETIME from = ToFileTime(end - 600 - static_cast<sim::MeterTime>(salt / 64 % (30 * 3600)));
  FILETIME to = ToFileTime(end);
  TimestampList list{};
  const std::uint32_t changes = tableChanges;
  const std::uint32_t exchanges = line.exchanges;
  const auto periods = before.meter->Settings().profileMinutes;
  const std::uint32_t listed = protocol->GetHistoryTimestamps(type, tag, device, &from, &to, &list);
  if (changes != tableChanges) return;
  for (std::uint32_t i = 1; i < list.Times.Size(); ++i) {
    if (FromFileTime(list.Times[i]) >= FromFileTime(list.Times[i - 1]))
      Violate("right records", "a listing has {} twice or in the wrong place", WallTimeText(FromFileTime(list.Times[i])));
  }
  // The simulated memory is laid out anew as a whole when the period changes: what a walk reads meanwhile, and keeps, belongs to
  // another time. A meter's own memory stays as it was recorded.
  if (periods != before.meter->Settings().profileMinutes) laidOutAnew.insert(operation.meter);
  if (laidOutAnew.contains(operation.meter)) return;
  for (const FILETIME& time : list.Times) {
    const HistoryValue value = ReadValue(*this, {.DeviceIndex = device, .MeterType = type, .TagId = tag, .Tariff = 0}, time);
    if (changes != tableChanges) return;
    if (value.Quality == kHistoryGood) CheckPower(operation.meter, tag, FromFileTime(time), value.Value.fltVal);
  }
  // Who is busy has not told a record that is asked for once, as after an ordered stop, and the walk ended there.
  const bool tells = protocol->Channel.RetryCount > 1 || plan.meters[operation.meter].spec.busyEvery == 0;
  if (listed != 0 && tells && !line.Disturbed(exchanges))
    CheckComplete(operation.meter, tag, {FromFileTime(from), FromFileTime(to)}, list);
}

// A record time is what the meter's clock showed; a shown time may stand for two.
void Site::CheckPower(std::size_t meter, std::uint32_t tag, sim::MeterTime shown, float value) {
  Moment now = MomentOf(*line.meters[meter]);
  // What was read before the factors were written stays as it was; around a change of the clock the host's programs ask
  // otherwise.
  const sim::MeterSpec& spec = plan.meters[meter].spec;
  if (now.settings.ku != spec.ku || now.settings.ki != spec.ki || ClocksChange(shown)) return;
  const std::size_t profile = (tag - kFirstProfile) / 4;
  std::vector<double> held;
  for (const std::uint8_t period :
       {now.settings.profileMinutes[profile], spec.profileMinutes[profile], std::uint8_t{10}, std::uint8_t{30}}) {
    now.settings.profileMinutes[profile] = period;
    for (const sim::MeterTime end : {shown, shown - sim::kHour, shown + sim::kHour}) {
      if (end != now.wall.TimeOf(shown) && now.wall.Shown(end) != shown && now.wall.Shown(end - 60) + 60 != shown) continue;
      const auto expected = sim::ExpectedProfile(now.View(), tag, end);
      if (!expected || !expected->whole) continue;
      if (Near(expected->value, double{value})) return;
      held.push_back(expected->value);
    }
  }
  Violate("right records", "meter {}, tag {}, {}: {}, and the meter has {}", spec.address, tag, WallTimeText(shown), value, held);
}

// No record between two listed ones, before the first or behind the last is left out. Around the changes of the clock, what is
// listed when is the host program's matter.
void Site::CheckComplete(std::size_t meter, std::uint32_t tag, sim::Period asked, const TimestampList& list) {
  const Moment now = MomentOf(*line.meters[meter]);
  const bool seam = ClocksChange(asked.from) || ClocksChange((asked.from + asked.to) / 2) || ClocksChange(asked.to);
  if (seam || asked.from >= asked.to) return;
  const auto shift = now.wall.Shown(asked.from) - asked.from;
  const sim::MeterTime from = asked.from - shift;
  std::set<sim::MeterTime> listed;
  for (const FILETIME& time : list.Times) listed.insert(FromFileTime(time) - shift);
  const std::vector<sim::MeterTime> held = sim::ExpectedProfileTimes(now.View(), tag, {from, asked.to - shift});
  // A walk that begins in an hour that the meter does not have goes on at the same minute of the next one.
  const sim::MeterTime firstHour = held.empty() ? from : HourOf(held.front());
  const sim::MeterTime begins = firstHour > from ? firstHour + from - HourOf(from) : from;
  for (const sim::MeterTime end : held) {
    if (end > now.now || end < begins || listed.contains(end)) continue;
    Violate("right records", "the record of {} was left out of a listing from {} to {} of tag {} of meter {}",
            WallTimeText(end + shift), WallTimeText(asked.from), WallTimeText(asked.to), tag, plan.meters[meter].spec.address);
  }
}

void Site::ReadArchive(const Operation& operation, std::uint32_t device) {
  const std::uint32_t type = plan.meters[operation.meter].type;
  std::uint32_t tag = kFirstHdaId + static_cast<std::uint32_t>(operation.salt % kHdaTagCount);
  if (!SupportsHdaTag(type, tag) || (tag >= kFirstProfile && tag < kFirstReading)) tag = kFirstHdaId + 36;
  const std::uint32_t first = tag < kFirstReading ? kFirstHdaId : kFirstReading;
  const auto tariff = static_cast<std::uint8_t>(((tag - first) % 9 + 1) % 9);
  FILETIME from = ToFileTime(0);
  FILETIME to = ToFileTime(sim::FromCivil({.year = 2030}));
  TimestampList list{};
  const std::uint32_t changes = tableChanges;
  protocol->GetHistoryTimestamps(type, tag, device, &from, &to, &list);
  for (std::uint32_t i = 0; i < std::min<std::uint32_t>(list.Times.Size(), 3); ++i) {
    const FILETIME time = list.Times[(i * 7) % list.Times.Size()];
    const Moment before = MomentOf(*line.meters[operation.meter]);
    const HistoryValue value = ReadValue(*this, {.DeviceIndex = device, .MeterType = type, .TagId = tag, .Tariff = tariff}, time);
    if (changes != tableChanges) return;
    if (value.Quality != kHistoryGood) continue;
    const double shown = tag < kFirstReading ? double{value.Value.fltVal} : value.Value.dblVal;
    std::vector<double> held;
    for (const Moment& moment : {before, MomentOf(*line.meters[operation.meter])}) {
      const auto expected = sim::ExpectedArchive(moment.View(), tag, FromFileTime(time));
      if (!expected || Near(*expected, shown)) return;
      held.push_back(*expected);
    }
    Violate("right records", "archive tag {}, {}: {}, and the meter has {}", tag, WallTimeText(FromFileTime(time)), shown, held);
  }
}

void Site::AskTimes(const Operation& operation, std::uint32_t device) {
  const std::uint32_t type = plan.meters[operation.meter].type;
  const std::uint32_t tag = kFirstHdaId + static_cast<std::uint32_t>(operation.salt % kHdaTagCount);
  std::uint32_t period = 0;
  protocol->GetHistoryInterval(tag, device, &period);
  FILETIME time = ToFileTime(MomentOf(*line.meters[operation.meter]).now / sim::kDay * sim::kDay);
  protocol->CheckHistoryTimestamp(type, tag, device, &time);
  char name[kNameBuffer] = {};
  static_cast<IBrowser&>(*protocol).GetTagName(tag, type, kBranchHda, name, 0);
}

}  // namespace ostrel::campaign
