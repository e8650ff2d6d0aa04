// The meters of a line inside this process, made from what a configuration says of them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ostrel::sim {
class Line;
}

namespace ostrel::host {

struct SimulatedMeter {
  std::uint32_t address = 1;
  std::uint32_t type = 1;
  std::string level1Password;
  std::string level2Password;
};

[[nodiscard]] std::shared_ptr<sim::Line> MakeSimulatedLine(const std::vector<SimulatedMeter>& meters);

}  // namespace ostrel::host
