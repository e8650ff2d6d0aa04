#include "station/collect/GapPlan.h"

#include <chrono>
#include <ctime>
#include <limits>

namespace ostrel::station {
namespace {

namespace chrono = std::chrono;

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kShortestMonthDays = 28;
constexpr std::int64_t kShortestYearDays = 365;

chrono::year_month_day DateOf(std::int64_t time) {
  return chrono::year_month_day(chrono::floor<chrono::days>(chrono::sys_seconds(chrono::seconds(time))));
}

std::int64_t StartOf(const chrono::year_month_day& date) {
  return chrono::sys_seconds(chrono::sys_days(date)).time_since_epoch().count();
}

}  // namespace

std::int64_t NextTime(std::int64_t time, std::int64_t period) {
  switch (period) {
    case kEveryDay:
      return time + kDay;
    case kEveryMonth:
      return StartOf(DateOf(time) + chrono::months(1));
    case kEveryYear:
      return StartOf(DateOf(time) + chrono::years(1));
    default:
      return time + period;
  }
}

std::vector<std::int64_t> ExpectedTimes(const std::vector<Expectation>& expectations, std::int64_t from, std::int64_t to) {
  std::vector<std::int64_t> times;
  for (std::size_t i = 0; i < expectations.size(); ++i) {
    const Expectation& expectation = expectations[i];
    if (expectation.period == 0) continue;
    const bool last = i + 1 == expectations.size();
    const std::int64_t end = std::min(to, last ? std::numeric_limits<std::int64_t>::max() : expectations[i + 1].since);
    std::int64_t time = expectation.since;
    if (expectation.period > 0 && time < from)
      time += (from - time + expectation.period - 1) / expectation.period * expectation.period;
    for (; time < end; time = NextTime(time, expectation.period)) {
      if (time >= from) times.push_back(time);
    }
  }
  return times;
}

std::vector<std::int64_t> MissingTimes(const std::vector<std::int64_t>& expected, const std::vector<StoredRecord>& stored,
                                       std::int64_t badSince) {
  std::vector<std::int64_t> missing;
  auto record = stored.begin();
  for (const std::int64_t time : expected) {
    while (record != stored.end() && record->time < time) ++record;
    const bool there = record != stored.end() && record->time == time;
    if (!there || (time >= badSince && record->state == RecordState::Bad)) missing.push_back(time);
  }
  return missing;
}

std::int64_t SureSpan(std::uint32_t depth, std::int64_t period) {
  switch (period) {
    case kEveryDay:
      return depth * kDay;
    case kEveryMonth:
      return depth * kShortestMonthDays * kDay;
    case kEveryYear:
      return depth * kShortestYearDays * kDay;
    default:
      return period <= 0 ? 0 : depth / (kHour / period + 1) * kHour;
  }
}

RecordState Judge(const NotGiven& record) {
  if (record.time > record.newestKnown) return RecordState::Bad;
  if (record.calendar || record.time < record.sureSince) return RecordState::Lost;
  return RecordState::Absent;
}

std::int64_t UtcOfWall(std::int64_t wall) {
  const std::time_t seconds = wall;
  std::tm fields{};
  gmtime_r(&seconds, &fields);
  fields.tm_isdst = -1;
  return std::mktime(&fields);
}

}  // namespace ostrel::station
