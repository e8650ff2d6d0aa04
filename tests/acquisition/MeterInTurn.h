// A meter at address 1, its device cycle called by hand as the poll thread would.
#pragma once

#include "Protocol/acquisition/DeviceCycle.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {

struct MeterInTurn : OneMeterChannel {
  explicit MeterInTurn(const LineOptions& options = {}, const DeviceOptions& meter = {.logRequest = 1}, std::uint32_t type = 1)
      : OneMeterChannel(options, meter, 1, type) {}

  std::uint32_t Cycle() { return RunDeviceCycle(Protocol(), device); }
  /// Requests of one cycle that succeeds.
  std::size_t Count() {
    Line().ClearRecords();
    EXPECT_EQ(1U, Cycle());
    return Line().RequestCount();
  }
};

}  // namespace ostrel::test
