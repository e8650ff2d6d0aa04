#include "host/ports/SimulatedMeters.h"

#include <utility>

#include "simulator/Line.h"

namespace ostrel::host {
namespace {

constexpr std::uint64_t kLineSeed = 1;

sim::Meter MakeMeter(const SimulatedMeter& meter) {
  sim::MeterSpec spec;
  spec.address = meter.address;
  spec.type = meter.type;
  if (!meter.level1Password.empty()) spec.password1 = meter.level1Password;
  spec.password2 = meter.level2Password;
  return sim::Meter(spec, kLineSeed);
}

}  // namespace

std::shared_ptr<sim::Line> MakeSimulatedLine(const std::vector<SimulatedMeter>& meters) {
  std::vector<sim::Meter> made;
  made.reserve(meters.size());
  for (const SimulatedMeter& meter : meters) made.push_back(MakeMeter(meter));
  return std::make_shared<sim::Line>(std::move(made));
}

}  // namespace ostrel::host
