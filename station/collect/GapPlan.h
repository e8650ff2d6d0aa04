// Which records a meter should hold by now, and what is to become of those that it did not give. Pure arithmetic over the
// meter's own clock.
#pragma once

#include <cstdint>
#include <vector>

#include "station/archive/Archive.h"

namespace ostrel::station {

/// The record time that follows.
[[nodiscard]] std::int64_t NextTime(std::int64_t time, std::int64_t period);

/// Times at which records are expected, oldest first: from each expectation's beginning to the next one's, within [from, to).
[[nodiscard]] std::vector<std::int64_t> ExpectedTimes(const std::vector<Expectation>& expectations, std::int64_t from,
                                                      std::int64_t to);

/// Those of the times that are not settled: without a record, or from `badSince` on with a bad one.
[[nodiscard]] std::vector<std::int64_t> MissingTimes(const std::vector<std::int64_t>& expected,
                                                     const std::vector<StoredRecord>& stored, std::int64_t badSince);

/// How long a memory of `depth` entries holds at least: seconds. A profile's hour has a header beside its records.
[[nodiscard]] std::int64_t SureSpan(std::uint32_t depth, std::int64_t period);

/// The meter answered for a time and gave no record.
struct NotGiven {
  std::int64_t time = 0;
  std::int64_t newestKnown = 0;  // of the meter's records of this tag
  std::int64_t sureSince = 0;    // whatever it recorded since then it must still hold
  bool calendar = false;         // an archive of days, months or years, which goes on without power
};

/// Lost, absent, or nothing to be said yet (given as Bad).
[[nodiscard]] RecordState Judge(const NotGiven& record);

/// When it was, by the time zone of this computer; the first of two times that the clock shows twice.
[[nodiscard]] std::int64_t UtcOfWall(std::int64_t wall);

}  // namespace ostrel::station
