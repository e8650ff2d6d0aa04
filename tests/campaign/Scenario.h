// What one seed stands for: the channels with what is on their lines, what the hosts do and when, and the faults by the number of
// the exchange that they meet. Meters, operations and faults can be left out, so that a failing one can be made smaller.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/session/Config.h"
#include "simulator/MeterSpec.h"

namespace ostrel::campaign {

struct Line;
struct Site;
struct Passing;
struct Operation;

/// What a host can do, and what can happen to its computer (SiteOperations.cpp).
struct OperationKind {
  const char* name;
  void (*act)(Site& site, const Operation& operation);
};
extern const std::span<const OperationKind> kOperationKinds;

/// What can happen on a line or to a meter when a request passes (Faults.cpp). The salt decides how much, how long and where.
struct FaultKind {
  const char* name;
  void (*strike)(Line& line, Passing& passing, std::uint64_t salt);
};
extern const std::span<const FaultKind> kFaultKinds;

struct MeterPlan {
  sim::MeterSpec spec;      // what stands on the line
  host::MeterConfig known;  // what the host knows of it
  std::uint32_t type = 1;   // what the host takes it for
  std::vector<std::uint32_t> tags;
  bool twin = false;     // another one has its address, or it is another type than the host believes, or never opens
  bool dropped = false;  // of the host; it may still stand on the line
};

struct ChannelPlan {
  host::ChannelConfig known;
  std::uint32_t clockCorrectionDays = 0;
  bool keepsOrder = true;  // a late answer holds those behind it up
  std::vector<MeterPlan> meters;
};

struct Operation {
  std::int64_t atMs = 0;
  const OperationKind* kind = nullptr;
  std::uint32_t channel = 0;
  std::uint32_t meter = 0;
  std::uint64_t salt = 0;
};

struct Fault {
  const FaultKind* kind = nullptr;
  std::uint32_t channel = 0;
  std::uint32_t exchange = 0;
  std::uint64_t salt = 0;
};

struct Scenario {
  std::uint64_t seed = 0;
  std::int64_t startUtcMs = 0;
  std::uint32_t startTick = 0;
  std::int64_t durationMs = 0;
  std::vector<ChannelPlan> channels;
  std::vector<Operation> operations;  // by time
  std::vector<Fault> faults;
};

[[nodiscard]] Scenario MakeScenario(std::uint64_t seed);
/// Everything that can be left out, by number: meters, then operations, then faults.
[[nodiscard]] std::size_t PartsOf(const Scenario& scenario);
void LeaveOut(Scenario& scenario, const std::set<std::size_t>& parts);
[[nodiscard]] std::string Describe(const Scenario& scenario);

}  // namespace ostrel::campaign
