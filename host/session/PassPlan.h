// What a pass of a channel costs, worked out before it is made: its requests, their bytes, and the time that they take.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/session/Channel.h"

namespace ostrel::host {

struct Cost {
  std::uint32_t requests = 0;
  std::uint32_t repeats = 0;  // among them, of what was measured
  std::uint32_t sentBytes = 0;
  std::uint32_t receivedBytes = 0;
  double seconds = 0;
};

struct FamilyCost {
  std::string family;
  Cost cost;
};

struct MeterPlan {
  std::string meter;
  std::uint32_t address = 0;
  Cost cost;
  std::vector<FamilyCost> families;  // the dearest first
};

struct PassPlan {
  Cost cost;
  std::vector<MeterPlan> meters;
};

/// A pass over the tags in use, from the second on (the first also opens channels and reads what stays). `turnaroundMs` is what
/// a meter takes to begin its answer.
[[nodiscard]] PassPlan PlanPass(Channel& channel, std::uint32_t turnaroundMs);

}  // namespace ostrel::host
