// The meter's event logs. Events of a log follow each other at a seeded pace, so that the newest ones at any time are known
// without keeping any.
#pragma once

#include <cstdint>
#include <optional>

#include "simulator/MeterCalendar.h"

namespace ostrel::sim {

struct LogEvent {
  MeterTime begin = 0;
  MeterTime end = 0;
};

inline constexpr std::uint8_t kLogs = 26;        // numbered from 1
inline constexpr std::uint8_t kLogRecords = 20;  // numbered from 0, the newest first

/// Logs 3 to 6 note a moment, the others a beginning and an end.
[[nodiscard]] constexpr bool LogHasOneStamp(std::uint8_t log) { return log >= 3 && log <= 6; }

/// The event in a record at a time, or nothing when the log does not reach back so far.
[[nodiscard]] std::optional<LogEvent> FindEvent(std::uint64_t seed, std::uint8_t log, std::uint8_t record, MeterTime now);

}  // namespace ostrel::sim
