// Completeness as a number: of the records that a meter should have given, how many are there, bad, lost, or still missing.
// And whether a meter's records prove each other: a day's profile must sum up to that day's energy.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "station/archive/Archive.h"

namespace ostrel::station {

/// One tag of one meter on one day of the meter's clock. A record belongs to the day that its interval ends in; midnight
/// ends a day.
struct DayCount {
  std::int64_t tag = 0;
  std::int64_t day = 0;  // its midnight
  std::int64_t expected = 0;
  std::int64_t stored = 0;
  std::int64_t bad = 0;
  std::int64_t lost = 0;

  [[nodiscard]] std::int64_t Missing() const { return expected - stored - bad - lost; }
};

struct TagName {
  std::string name;
  std::string unit;
};

struct Span {
  std::int64_t from = 0;  // of the meter's clock
  std::int64_t to = 0;
};

/// Days within [from, to) that records are expected on, by tag and day; nothing is expected before it can be there.
[[nodiscard]] std::vector<DayCount> CountDays(Archive& archive, const MeterRow& meter, Span span);
/// Stored, of what is expected and not lost; 1 where nothing is expected.
[[nodiscard]] double Share(const std::vector<DayCount>& days);
[[nodiscard]] TagName NameOf(Archive& archive, MeterKey meter, std::int64_t tag);
/// Tags of which records are kept.
[[nodiscard]] std::vector<std::int64_t> RecordTags(Archive& archive, MeterKey meter);

struct Proof {
  std::int64_t tag = 0;  // of the day's energy
  std::int64_t day = 0;
  double profile = 0;  // kWh or kvarh
  double energy = 0;
  double tolerance = 0;  // a pulse per record
  [[nodiscard]] bool Holds() const { return std::abs(profile - energy) <= tolerance; }
};

/// The days whose profile and energy are both whole.
[[nodiscard]] std::vector<Proof> ProveDays(Archive& archive, const MeterRow& meter, Span span);

}  // namespace ostrel::station
