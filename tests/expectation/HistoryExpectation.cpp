#include "tests/expectation/HistoryExpectation.h"

#include <algorithm>

#include "simulator/ProfileMemory.h"
#include "tests/expectation/Expectation.h"

namespace ostrel::sim {
namespace {

constexpr std::uint32_t kTagsOfClass = 36;
constexpr std::uint32_t kTagsOfKind = 9;  // eight tariffs and the sum
constexpr std::uint32_t kFirstTag = 40000;
constexpr std::uint32_t kFirstProfile = 40108;
constexpr std::uint32_t kFirstReading = 40120;
constexpr std::uint32_t kLastTag = 40227;
constexpr std::uint32_t kTagsOfProfile = 4;

enum class Step : std::uint8_t { Day, Month, Year };

MeterTime StartOf(const WallClock& wall, Step step, MeterTime time, int offset = 0) {
  if (step == Step::Day) return wall.DayStart(time, offset);
  return step == Step::Month ? wall.MonthStart(time, offset) : wall.YearStart(time, offset);
}

/// A day stays until the next one of its number in the month is over.
bool KeepsDay(const MeterView& view, MeterTime day) {
  const int number = ToCivil(view.wall.Shown(day)).day;
  const MeterTime today = view.wall.DayStart(view.now);
  for (MeterTime later = view.wall.DayStart(day, 1); later < today; later = view.wall.DayStart(later, 1)) {
    if (ToCivil(view.wall.Shown(later)).day == number) return false;
  }
  return true;
}

/// Whether the values that ended `back` steps before the running one are kept.
bool KeepsPeriod(const MeterView& view, Step step, int back) {
  const MeterType& type = view.model.Type();
  if (step == Step::Month) return back <= (type.keepsMonthYearAgo ? 11 : 10);
  return back == 0 || (step == Step::Day && type.keepsDays && KeepsDay(view, view.wall.DayStart(view.now, -back - 1)));
}

bool KeepsReading(const MeterView& view, Step step, int back) {
  if (step != Step::Month) return back <= 1;
  return back <= (view.model.Type().keepsMonthYearAgo ? 12 : 11);
}

/// How many steps before the running day, month or year a start lies; nothing for no start, a later or a very old one.
std::optional<int> StepsBack(const MeterView& view, Step step, MeterTime start) {
  constexpr int kMostSteps = 62;
  for (int back = 0; back <= kMostSteps; ++back) {
    if (StartOf(view.wall, step, view.now, -back) == start) return back;
  }
  return std::nullopt;
}

struct ProfilePlace {
  std::size_t kind;
  MeterTime period;
};

std::optional<ProfilePlace> PlaceOf(const MeterView& view, std::uint32_t tagId) {
  if (tagId < kFirstProfile || tagId >= kFirstReading) return std::nullopt;
  const std::size_t profile = (tagId - kFirstProfile) / kTagsOfProfile;
  const MeterTime period = MeterTime{60} * view.settings.profileMinutes[profile];
  if (period == 0) return std::nullopt;
  return ProfilePlace{(tagId - kFirstProfile) % kTagsOfProfile, period};
}

bool HadPower(const MeterView& view, MeterTime hour) {
  return std::ranges::none_of(view.model.Energy().Outages(),
                              [hour](const Period& outage) { return outage.from <= hour && outage.to >= hour + kHour; });
}

/// The hours that are still in the memory, the newest first.
std::vector<MeterTime> KeptHours(const MeterView& view, MeterTime period) {
  const auto most = static_cast<std::size_t>(view.model.Type().profileCells / (1 + kHour / period));
  const MeterTime installed = view.model.Energy().Outages()[0].to;
  const MeterTime begin = std::max(installed, view.wall.TimeOf(view.spec.recording.value_or(installed)));
  std::vector<MeterTime> hours;
  for (MeterTime hour = view.now / kHour * kHour; hour + kHour > begin && hours.size() < most; hour -= kHour) {
    if (HadPower(view, hour)) hours.push_back(hour);
  }
  return hours;
}

}  // namespace

std::optional<double> ExpectedArchive(const MeterView& view, std::uint32_t tagId, MeterTime date, std::optional<int> tariff) {
  const bool reading = tagId >= kFirstReading;
  if (tagId < kFirstTag || tagId > kLastTag || (tagId >= kFirstProfile && !reading)) return std::nullopt;
  const std::uint32_t place = tagId - (reading ? kFirstReading : kFirstTag);
  const auto step = static_cast<Step>(place / kTagsOfClass);
  const std::size_t kind = place % kTagsOfClass / kTagsOfKind;
  const int ofTag = static_cast<int>((place % kTagsOfKind + 1) % kTagsOfKind);
  const MeterTime start = view.wall.TimeOf(StartOfDay(date));
  const auto back = StepsBack(view, step, start);
  if (!back || !(reading ? KeepsReading(view, step, *back) : KeepsPeriod(view, step, *back))) return std::nullopt;
  const EnergyCounters& energy = view.model.Energy();
  if (reading) return EnergyValue(view, energy.At(tariff.value_or(ofTag), start)[kind]);
  return EnergyValue(view, energy.Between(tariff.value_or(ofTag), StartOf(view.wall, step, start, -1), start)[kind]);
}

std::optional<ExpectedPower> ExpectedProfile(const MeterView& view, std::uint32_t tagId, MeterTime end) {
  const auto place = PlaceOf(view, tagId);
  if (!place || ExpectedProfileTimes(view, tagId, {end, end + 1}).empty()) return std::nullopt;
  const Period interval{end - place->period, end};
  const bool dark = std::ranges::any_of(view.model.Energy().Outages(), [&](const Period& outage) {
    return outage.from < interval.to && outage.to > interval.from;
  });
  const std::uint32_t pulses = view.model.Energy().Between(0, interval.from, std::min(end, view.now))[place->kind];
  const double hours = static_cast<double>(place->period) / static_cast<double>(kHour);
  return ExpectedPower{.value = EnergyValue(view, pulses) / hours, .whole = end <= view.now && !dark};
}

std::vector<MeterTime> ExpectedProfileTimes(const MeterView& view, std::uint32_t tagId, Period ends) {
  const auto place = PlaceOf(view, tagId);
  if (!place) return {};
  std::vector<MeterTime> hours = KeptHours(view, place->period);
  std::ranges::reverse(hours);
  std::vector<MeterTime> times;
  for (const MeterTime hour : hours) {
    for (MeterTime end = hour + place->period; end <= hour + kHour; end += place->period) {
      const bool written = end - place->period < view.now && !IsBlank(view, {end - place->period, end});
      if (written && end >= ends.from && end < ends.to) times.push_back(end);
    }
  }
  return times;
}

}  // namespace ostrel::sim
