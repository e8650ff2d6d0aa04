// Local-time rules of the run-time library, with one rule of our own where it leaves a choice: a time of day that
// occurs twice when summer time ends is standard time, and one that does not occur when it starts counts as standard
// time too (02:30 of the missing hour is 01:30 before the change). Plain mktime depends there on its previous call.
#pragma once

#include <cstdint>
#include <optional>

namespace ostrel::platform {

struct LocalFields {
  int year = 1970;
  int month = 1;  // 1..12
  int day = 1;    // 1..31
  int hour = 0;
  int minute = 0;
  int second = 0;
  int day_of_week = 0;  // 0 = Sunday; only read back
};

/// Seconds since 1970-01-01 UTC of local calendar fields, or nothing outside 1970..3000. Days past the end of a month
/// run over into the next one, as the run-time has it.
[[nodiscard]] std::optional<std::int64_t> SecondsFromLocal(const LocalFields& fields);

/// Local calendar fields of an instant, or nothing outside 1970..3000.
[[nodiscard]] std::optional<LocalFields> LocalFromSeconds(std::int64_t seconds);

}  // namespace ostrel::platform
