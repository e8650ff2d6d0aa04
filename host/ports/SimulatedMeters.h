// The meters of a line inside this process, made from what a configuration says of them.
#pragma once

#include <memory>
#include <vector>

#include "simulator/Line.h"

namespace ostrel::host {

struct SimulatedMeter;

[[nodiscard]] std::shared_ptr<sim::Line> MakeSimulatedLine(const std::vector<SimulatedMeter>& meters);

}  // namespace ostrel::host
