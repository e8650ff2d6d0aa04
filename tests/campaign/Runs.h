// Seeds in processes of their own: what breaks one leaves the others alone, and a hang ends with its process.
#pragma once

#include <optional>

#include "tests/campaign/Scenario.h"

namespace ostrel::campaign {

struct Finding {
  std::size_t invariant = 0;
  std::uint64_t seed = 0;
  std::uint64_t exchanges = 0;  // since the process began, until it was seen
  std::string what;             // and the last exchanges
};

struct Totals {
  std::uint64_t seeds = 0, exchanges = 0, faults = 0, violations = 0;
  std::uint64_t trace = 0;  // of all seeds, in whatever order they ran
};

/// Seeds from `first` on until there were `count`, the time is over or something was found.
struct Order {
  std::uint64_t first = 1;
  std::uint64_t count = 200;
  std::int64_t seconds = 0;  // 0: no limit
  std::size_t plant = 0;     // its row
  std::set<std::size_t> leftOut{};
};

/// In one process; ends with the first finding.
[[nodiscard]] std::optional<Finding> RunUntilFound(const Order& order, Totals& totals);
/// On all processors, on past findings; each is told as it comes.
void RunAll(const Order& order, Totals& totals, void (*tell)(const Finding&));
/// What else can be left out of a scenario that breaks this invariant, so that it still does.
[[nodiscard]] std::set<std::size_t> Shrink(const Finding& finding);

}  // namespace ostrel::campaign
