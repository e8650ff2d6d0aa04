// One seed's world: its channels side by side in one scheduler.
#pragma once

#include <cstdint>
#include <string>

#include "tests/campaign/Scenario.h"

namespace ostrel::campaign {

struct SeedResult {
  std::uint64_t exchanges = 0;
  std::uint64_t faults = 0;
  std::uint64_t trace = 0;
};

[[nodiscard]] SeedResult RunWorld(const Scenario& scenario);

/// The last exchanges of the world that runs now, and how many there were.
[[nodiscard]] std::string DescribeWorld();
[[nodiscard]] std::uint64_t WorldExchanges();

}  // namespace ostrel::campaign
