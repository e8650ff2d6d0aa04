// A whole channel in one process: the plug-in object with a host context, a scripted line, a log file, a trace and a virtual
// clock. One at a time, since the clock is the module's.
//
//   TestChannel channel({.port = "COM12", .retries = 1});
//   const auto meter = channel.AddMeter(12, 1);
//   CDeviceTag* tag = channel.AddTag(meter, 17);
//   channel.Line().Expect("0C 05 00 00").Answer("0C 00 00 0F A0 …");
//   channel.Protocol().Start(); … EXPECT_THAT(channel.LogLines(), ElementsAre("COM12 ПРИБОР:12 Нет ответа от устройства"));
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Protocol/diagnostics/CLogFile.h"
#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/object/CProtocol.h"
#include "platform/virtual_clock.h"
#include "tests/support/ScriptedLine.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {

/// 2026-11-22 20:00:00 UTC
inline constexpr std::int64_t kTestStartUtc = 1795377600000;

struct ChannelOptions {
  std::string port = "COM3";
  std::uint32_t baud = 9600;
  std::uint16_t retries = 3;
  std::uint32_t pollPeriodSeconds = 5;
  std::uint32_t portTimeoutMs = 500;
  std::uint32_t preSendPauseMs = 0;
  std::string parity = "Нет";  // UTF-8
  std::string settingsText;
  std::uint32_t clockCorrectionDays = 0;
  std::int64_t startUtcMs = kTestStartUtc;
  std::uint32_t startTick = 0;
};

struct MeterOptions {
  std::string level1Password = "000000";
  std::string level2Password;
  std::uint32_t failHoldMs = 0;
  std::uint8_t logRequest = 0;
  std::uint32_t exchangeOn = 1;  // the plug-in leaves it as passed, and the host's programs pass 1
};

class TestChannel {
 public:
  explicit TestChannel(const ChannelOptions& options = {});
  /// With an object of a derived class, made by `new`; the channel takes it over.
  TestChannel(const ChannelOptions& options, CProtocol* protocol);
  TestChannel(const TestChannel&) = delete;
  TestChannel& operator=(const TestChannel&) = delete;
  ~TestChannel();

  [[nodiscard]] CProtocol& Protocol() { return *protocol_; }
  [[nodiscard]] ScriptedLine& Line() { return line_; }
  [[nodiscard]] platform::VirtualClock& Clock() { return clock_; }
  [[nodiscard]] HostContext& Context() { return context_; }
  [[nodiscard]] CLogFile& Log() { return log_; }
  [[nodiscard]] DebugTrace& Trace() { return trace_; }

  /// SetPortSettings (again), as a host does before each start.
  void Configure(const ChannelOptions& options);
  std::uint32_t AddMeter(std::uint32_t address, std::uint32_t type, const MeterOptions& options = {});
  /// The meter's record; not to be kept when meters are added.
  [[nodiscard]] DeviceEntry& Entry(std::uint32_t device);
  /// A tag as a host makes it from the catalogue, with one client when it is in use. The channel's object owns it.
  CDeviceTag* AddTag(std::uint32_t device, std::uint32_t number, bool inUse = true);

  /// Messages of the event log as UTF-8, without their time stamps.
  [[nodiscard]] std::vector<std::string> LogLines() const;
  /// The log's lines as they lie in the file.
  [[nodiscard]] std::vector<std::string> RawLogLines() const;
  /// Traces from here on into a file of the channel.
  void StartTrace(std::string_view settings = "DBG_COMMON=2");
  /// Lines of that file behind their prefixes.
  [[nodiscard]] std::vector<std::string> TraceLines() const;

 private:
  TemporaryFolder folder_;
  platform::VirtualClock clock_;
  ScriptedLine line_;
  CLogFile log_;
  DebugTrace trace_;
  HostContext context_;
  CProtocol* protocol_;
};

/// The record that SetPortSettings takes.
[[nodiscard]] PortSettings MakePortSettings(const ChannelOptions& options);

}  // namespace ostrel::test
