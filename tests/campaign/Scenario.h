// What one seed stands for: the channels with what is on their lines, what the hosts do and when, and the faults by the number of
// the exchange that they meet. Meters, operations and faults can be left out, so that a failing one can be made smaller.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "host/ports/PortLine.h"
#include "simulator/MeterSpec.h"

namespace ostrel::campaign {

struct MeterPlan {
  sim::MeterSpec spec;        // what stands on the line
  std::uint32_t type = 1;     // what the host takes it for
  std::string password1;      // what the host knows
  std::string password2;
  std::uint32_t failHoldMs = 0;
  std::uint8_t log = 1;
  std::vector<std::uint32_t> tags;
  bool twin = false;     // another one has its address, or it is another type than the host believes, or never opens
  bool dropped = false;  // of the host; it may still stand on the line
};

struct ChannelPlan {
  std::uint32_t baud = 9600;
  std::uint16_t retries = 3;
  std::uint32_t pollPeriodSeconds = 5;
  std::uint32_t timeoutMs = 500;
  std::uint32_t preSendPauseMs = 0;
  std::uint32_t clockCorrectionDays = 0;
  host::LineOptions line;
  bool keepsOrder = true;  // a late answer holds those behind it up
  std::vector<MeterPlan> meters;
};

enum class OperationKind : std::uint8_t {
  UseTag,
  LeaveTag,
  Write,
  RemoveMeter,
  AddMeter,
  Restart,
  SignalAndStart,
  ChangeSettings,
  SwitchExchange,
  ListProfile,
  ReadArchive,
  AskTimes,
  WrongClock,
  Suspend,
  FailAllocation,
  FailCall,
  Count,
};

struct Operation {
  std::int64_t atMs = 0;
  OperationKind kind = OperationKind::UseTag;
  std::uint32_t channel = 0;
  std::uint32_t meter = 0;
  std::uint64_t salt = 0;
};

enum class FaultKind : std::uint8_t {
  LostByte,
  FlippedBits,
  Cut,
  Merged,
  Doubled,
  Late,
  Echo,
  EchoInPart,
  EchoDamaged,
  OtherAddress,
  Status,
  PortVanishes,
  Stuck,
  Drip,
  NoiseBefore,
  NoiseBetween,
  NoiseAfter,
  NoiseEndless,
  MeterRestarts,
  AccessLapses,
  PasswordRefused,
  EmptyRecord,
  PeriodChanges,
  MeterClockBack,
  Silence,
  Count,
};

struct Fault {
  FaultKind kind = FaultKind::Silence;
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

[[nodiscard]] const char* NameOf(FaultKind kind);
[[nodiscard]] const char* NameOf(OperationKind kind);

}  // namespace ostrel::campaign
