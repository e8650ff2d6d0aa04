// What `ostrel-host history` printed, and one meter that stands still for it to be read from.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "simulator/Meter.h"
#include "tests/end_to_end/Programs.h"

namespace ostrel::test {

/// Values by time of one tag.
using Series = std::map<std::string, double>;

struct History {
  std::map<int, Series> tags;  // records with a value, by id
  std::map<std::pair<int, std::string>, int> qualities;
  int exitCode = -1;
  std::string errors;
};

[[nodiscard]] History ParseHistory(const HostRun& run);
[[nodiscard]] History ReadHistory(Bench& bench, std::vector<std::string> tags, const std::string& from, const std::string& to);

/// A line with one meter that stands still, and a host for it.
void StartMeter(Bench& bench, std::uint32_t type, const std::string& more);
[[nodiscard]] sim::Meter ModelOf(const std::string& text);

/// What a float makes of some summands.
void ExpectNear(double expected, double value, double summands, const std::string& what);

}  // namespace ostrel::test
