#include "station/collect/Completeness.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>

#include "host/session/HistoryInterval.h"
#include "station/collect/GapPlan.h"

namespace ostrel::station {
namespace {

constexpr std::int64_t kDay = 86400;
/// As long as a record may take to be fetched: the search for gaps looks every hour.
constexpr std::int64_t kFetchSeconds = 2 * 3600;

std::int64_t DayOf(std::int64_t time) { return (time - 1) / kDay * kDay; }

std::int64_t WallOfUtc(std::int64_t utc) {
  const std::time_t seconds = utc;
  std::tm fields{};
  localtime_r(&seconds, &fields);
  return timegm(&fields);
}

/// A day's energy and the profile whose sum it must be.
struct Pair {
  std::int64_t day;
  std::int64_t profile;
};

constexpr Pair kPairs[] = {{40008, 40108}, {40017, 40109}, {40026, 40110}, {40035, 40111}};

enum CoefficientTag : std::int64_t { kConstant = 20004, kVoltage = 20006, kCurrent = 20007 };

std::optional<double> LastValue(Archive& archive, MeterKey meter, std::int64_t tag) {
  std::optional<double> value;
  archive.Base().Run("SELECT value FROM current WHERE meter = $1 AND tag = $2 AND value IS NOT NULL ORDER BY utc DESC LIMIT 1",
                     {meter, tag}, [&](const Row& row) { value = NumberAt(row, 0); });
  return value;
}

/// The energy of one of the meter's half pulses, which records are counted in.
std::optional<double> PulseOf(Archive& archive, MeterKey meter) {
  const std::optional<double> constant = LastValue(archive, meter, kConstant);
  const std::optional<double> voltage = LastValue(archive, meter, kVoltage);
  const std::optional<double> current = LastValue(archive, meter, kCurrent);
  if (!constant || !voltage || !current || *constant <= 0) return std::nullopt;
  return *voltage * *current / (2 * *constant);
}

struct Sum {
  double energy = 0;
  std::int64_t records = 0;
  bool whole = true;
};

Sum SumProfile(Archive& archive, MeterKey meter, std::int64_t tag, std::int64_t end) {
  Sum sum;
  const std::int64_t from = end - kDay + 1;
  const std::vector<Expectation> known = archive.Expectations(meter, tag);
  const std::vector<std::int64_t> expected = ExpectedTimes(known, from, end + 1);
  const std::vector<StoredRecord> records = archive.Records(meter, tag, from, end + 1);
  const std::int64_t period = known.empty() ? 0 : known.back().period;
  // A day before the first expectation, or one in which the period changed, proves nothing.
  sum.whole = !known.empty() && known.back().since <= from + period && MissingTimes(expected, records, from).empty();
  for (const StoredRecord& record : records) {
    if (record.state == RecordState::Lost) sum.whole = false;
    if (record.state != RecordState::Good || !record.value) continue;
    sum.energy += *record.value * static_cast<double>(period) / 3600;
    ++sum.records;
  }
  return sum;
}

}  // namespace

std::vector<std::int64_t> RecordTags(Archive& archive, MeterKey meter) {
  std::vector<std::int64_t> tags;
  archive.Base().Run("SELECT DISTINCT tag FROM expected WHERE meter = $1 ORDER BY tag", {meter},
                     [&](const Row& row) { tags.push_back(WholeAt(row, 0)); });
  return tags;
}

TagName NameOf(Archive& archive, MeterKey meter, std::int64_t tag) {
  TagName name;
  archive.Base().Run("SELECT name, unit FROM tag WHERE meter = $1 AND tag = $2", {meter, tag},
                     [&](const Row& row) { name = {.name = TextAt(row, 0), .unit = TextAt(row, 1)}; });
  return name;
}

std::vector<DayCount> CountDays(Archive& archive, const MeterRow& meter, Span span) {
  span.to = std::min(span.to, host::ComputersWallTime() - kFetchSeconds);
  if (meter.until) span.to = std::min(span.to, WallOfUtc(*meter.until));
  std::vector<DayCount> all;
  for (const std::int64_t tag : RecordTags(archive, meter.key)) {
    std::map<std::int64_t, DayCount> days;
    for (const std::int64_t time : ExpectedTimes(archive.Expectations(meter.key, tag), span.from, span.to))
      ++days[DayOf(time)].expected;
    archive.Base().Run(
        "SELECT (time - 1) / 86400, state, count(*) FROM record WHERE meter = $1 AND tag = $2 AND time >= $3 AND time < $4 GROUP "
        "BY 1, 2",
        {meter.key, tag, span.from, span.to}, [&](const Row& row) {
          const auto day = days.find(WholeAt(row, 0) * kDay);
          if (day == days.end()) return;
          const std::int64_t count = WholeAt(row, 2);
          switch (static_cast<RecordState>(WholeAt(row, 1))) {
            case RecordState::Good:
              day->second.stored += count;
              break;
            case RecordState::Bad:
              day->second.bad += count;
              break;
            case RecordState::Lost:
              day->second.lost += count;
              break;
            case RecordState::Absent:
              day->second.expected -= count;
              break;
          }
        });
    for (auto& [day, count] : days) {
      count.tag = tag;
      count.day = day;
      // While a period changes, records of both stand on one day.
      count.expected = std::max(count.expected, count.stored + count.bad + count.lost);
      if (count.expected != 0) all.push_back(count);
    }
  }
  return all;
}

double Share(const std::vector<DayCount>& days) {
  std::int64_t expected = 0;
  std::int64_t there = 0;
  for (const DayCount& day : days) {
    expected += day.expected - day.lost;
    there += day.stored + day.bad;
  }
  return expected == 0 ? 1.0 : static_cast<double>(there) / static_cast<double>(expected);
}

std::vector<Proof> ProveDays(Archive& archive, const MeterRow& meter, Span span) {
  std::vector<Proof> proofs;
  const std::optional<double> pulse = PulseOf(archive, meter.key);
  if (!pulse) return proofs;
  for (const Pair& pair : kPairs) {
    for (const StoredRecord& day : archive.Records(meter.key, pair.day, span.from, span.to)) {
      if (day.state != RecordState::Good || !day.value) continue;
      const Sum sum = SumProfile(archive, meter.key, pair.profile, day.time);
      if (!sum.whole || sum.records == 0) continue;
      // Floats keep seven digits, of the day's value too.
      const double rounding = std::abs(*day.value) * 1e-6;
      proofs.push_back({.tag = pair.day,
                        .day = day.time - kDay,
                        .profile = sum.energy,
                        .energy = *day.value,
                        .tolerance = *pulse * static_cast<double>(sum.records) + rounding});
    }
  }
  return proofs;
}

}  // namespace ostrel::station
