// A channel with one simulated meter at address 1, its device cycle called by hand as the poll thread would.
#pragma once

#include "Protocol/acquisition/DeviceCycle.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {

class MeterInTurn {
 public:
  explicit MeterInTurn(const LineOptions& options = {}, const DeviceOptions& meter = {.logRequest = 1}, std::uint32_t type = 1)
      : channel(options), device(channel.AddMeter(1, type, meter)) {
    channel.Protocol().Running = 1;
  }
  ~MeterInTurn() { channel.Protocol().Running = 0; }

  CDeviceTag* Add(std::uint32_t number, bool inUse = true) { return channel.AddTag(device, number, inUse); }
  DeviceEntry& Entry() { return channel.Entry(device); }
  std::uint32_t Cycle() { return RunDeviceCycle(channel.Protocol(), device); }
  /// Requests of one cycle that succeeds.
  std::size_t Count() {
    channel.Line().ClearRecords();
    EXPECT_EQ(1U, Cycle());
    return channel.Line().RequestCount();
  }
  /// Requests since the last call that begin so.
  std::vector<std::string> Take(std::string_view start) {
    std::vector<std::string> texts = channel.Line().RequestTexts();
    channel.Line().ClearRecords();
    std::erase_if(texts, [&](const std::string& text) { return !text.starts_with(start); });
    return texts;
  }
  void Silence(bool silent = true) { channel.Line().ReplyAlways("", silent ? "" : "*"); }

  SimulatedChannel channel;
  const std::uint32_t device;
};

}  // namespace ostrel::test
