// A whole channel in one process: the plug-in object with a host context, a line of simulated meters, a log file, a trace and
// a virtual clock. One at a time, since the clock is the module's.
//
//   SimulatedChannel channel({.port = "COM12", .retries = 1});
//   const auto meter = channel.AddMeter(12, 1, {.simulated = "ku=100:ki=20"});
//   CDeviceTag* tag = channel.AddTag(meter, 17);
//   channel.Line().Reply("0C 05 00 00", {""});
//   channel.Protocol().Start(); … EXPECT_THAT(channel.LogLines(), ElementsAre("COM12 ПРИБОР:12 Нет ответа от устройства"));
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Protocol/diagnostics/CLogFile.h"
#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/object/CProtocol.h"
#include "platform/virtual_clock.h"
#include "tests/support/SimulatedLine.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {

/// 2026-11-22 20:00:00 UTC, a Sunday
inline constexpr std::int64_t kEvening = 1795377600000;
/// Milliseconds since 1970 of "2026-11-22 10:07:30.250"; the time of day, or its end, may be left out.
[[nodiscard]] std::int64_t UtcMs(std::string_view text);

/// The virtual clock for the time of a test.
class ClockInPlace : public platform::VirtualClock {
 public:
  explicit ClockInPlace(std::int64_t utcMs = kEvening, std::uint32_t tick = 0) : VirtualClock(utcMs, tick) {
    platform::ReplaceClock(this);
  }
  ~ClockInPlace() { platform::ReplaceClock(nullptr); }
};

struct LineOptions {
  std::string port = "COM3";
  std::uint32_t baud = 9600;
  std::uint16_t retries = 3;
  std::uint32_t pollPeriodSeconds = 5;
  std::uint32_t portTimeoutMs = 500;
  std::uint32_t preSendPauseMs = 0;
  std::string parity = "Нет";  // UTF-8
  std::string settingsText = {};
  std::uint32_t clockCorrectionDays = 0;
  std::int64_t startUtcMs = kEvening;
  std::uint32_t startTick = 0;
  CProtocol* protocol = nullptr;  // of a derived class, made by `new`; the channel takes it over
};

struct DeviceOptions {
  std::string level1Password = "000000";
  std::string level2Password = {};
  std::uint32_t failHoldMs = 0;
  std::uint8_t logRequest = 0;
  std::uint32_t exchangeOn = 1;  // the plug-in leaves it as passed, and the host's programs pass 1
  std::string simulated = {};    // further settings of the simulated meter
  bool onLine = true;            // or in the plug-in's table alone
};

class SimulatedChannel {
 public:
  explicit SimulatedChannel(const LineOptions& options = {});
  SimulatedChannel(const SimulatedChannel&) = delete;
  SimulatedChannel& operator=(const SimulatedChannel&) = delete;
  ~SimulatedChannel();

  [[nodiscard]] CProtocol& Protocol() { return *protocol_; }
  [[nodiscard]] SimulatedLine& Line() { return line_; }
  [[nodiscard]] ClockInPlace& Clock() { return clock_; }
  [[nodiscard]] HostContext& Context() { return context_; }

  /// SetPortSettings (again), as a host does before each start.
  void Configure(const LineOptions& options);
  /// Also on the line, if the address can be a meter's; one of type 1 where there is no such type.
  std::uint32_t AddMeter(std::uint32_t address, std::uint32_t type, const DeviceOptions& options = {});
  /// The meter's record; not to be kept when meters are added.
  [[nodiscard]] DeviceEntry& Entry(std::uint32_t device) { return *protocol_->Device(device); }
  /// A tag as a host makes it from the catalogue, with one client when it is in use. The channel's object owns it.
  CDeviceTag* AddTag(std::uint32_t device, std::uint32_t number, bool inUse = true);

  /// Messages of the event log as UTF-8, without their time stamps.
  [[nodiscard]] std::vector<std::string> LogLines() const;
  /// The log's lines as they lie in the file.
  [[nodiscard]] std::vector<std::string> RawLogLines() const { return ReadLines(folder_.File("events.log")); }
  /// Traces from here on into a file of the channel.
  void StartTrace(std::string_view settings = "DBG_COMMON=2");
  /// Lines of that file behind their prefixes.
  [[nodiscard]] std::vector<std::string> TraceLines() const;

 private:
  TemporaryFolder folder_;
  ClockInPlace clock_;
  SimulatedLine line_;
  CLogFile log_{folder_.File("events.log").c_str(), 1024, true};
  DebugTrace trace_;
  HostContext context_;
  CProtocol* protocol_;
};

/// With one meter, as in a running poll thread.
class OneMeterChannel : public SimulatedChannel {
 public:
  explicit OneMeterChannel(const LineOptions& options = {}, const DeviceOptions& meter = {}, std::uint32_t address = 1,
                           std::uint32_t type = 1);
  ~OneMeterChannel() { Protocol().Running = 0; }

  using SimulatedChannel::Entry;
  [[nodiscard]] DeviceEntry& Entry() { return Entry(device); }
  CDeviceTag* Add(std::uint32_t number, bool inUse = true) { return AddTag(device, number, inUse); }
  void Silence(bool silent = true) { Line().ReplyAlways("", silent ? "" : "*"); }
  /// The requests since the last call that begin so.
  std::vector<std::string> Take(std::string_view start = "");

  std::uint32_t device;
};

/// A write as a client's host leaves it, in the tag's own type.
void LeaveWrite(CDeviceTag& tag, float value);
/// What a tag shows as a number; a text as UTF-8, "?" where it shows none.
[[nodiscard]] float NumberOf(const CDeviceTag& tag);
[[nodiscard]] std::string TextOf(const CDeviceTag& tag);

/// The record that SetPortSettings takes.
[[nodiscard]] PortSettings MakePortSettings(const LineOptions& options);

}  // namespace ostrel::test
