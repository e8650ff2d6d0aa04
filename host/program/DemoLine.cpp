#include "host/program/DemoLine.h"

#include <fmt/format.h>

#include <filesystem>

#include "host/session/Failure.h"
#include "platform/clock.h"
#include "platform/module.h"
#include "platform/thread.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kLineStepMs = 20;
constexpr int kLineSteps = 1000;
constexpr std::uint32_t kFirstTcpPort = 20000;
constexpr std::uint32_t kTcpPorts = 20000;

struct DemoMeter {
  const char* name;
  std::uint32_t address;
  std::uint32_t type;
  const char* more;  // what else the simulated meter is told
  std::vector<const char*> tags;
};

// The first one's clock is a minute and a half ahead, so that it is corrected before our eyes.
const std::vector<DemoMeter>& DemoMeters() {
  static const std::vector<DemoMeter> meters = {
      {"feeder-1",
       12,
       1,
       ":offset_s=90:password2=222222",
       {"Meter Type", "Serial Number", "A+ Tariff Sum", "R+ Tariff Sum", "Power P Sum", "Voltage Phase ?", "Current Phase ?",
        "Frequency", "Transition Inhibit", "LimitPowerWeekDay", "ConnectionState"}},
      {"feeder-2",
       13,
       8,
       "",
       {"Meter Type", "Serial Number", "Release Date", "A+ Tariff *", "Power P Sum", "Temperature", "ConnectionState"}},
      {"house",
       14,
       12,
       "",
       {"Meter Type", "Serial Number", "Location", "A+ Tariff Sum", "Power P Phase 1", "Voltage Phase 1", "ConnectionState"}},
  };
  return meters;
}

MeterConfig MakeMeter(const DemoMeter& meter) {
  MeterConfig config;
  config.name = meter.name;
  config.address = meter.address;
  config.type = meter.type;
  config.level1Password = "000000";
  if (std::string(meter.more).find("password2") != std::string::npos) config.level2Password = "222222";
  for (const char* const tag : meter.tags) config.tags.push_back({.text = tag, .place = {}});
  return config;
}

}  // namespace

DemoLine::DemoLine() {
  std::error_code failed;
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path(failed) / fmt::format("ostrel-demo-{}", platform::CurrentProcessId());
  std::filesystem::create_directories(folder, failed);
  if (failed) throw Failure(kExitPort, folder.string() + ": " + failed.message());
  folder_ = folder.string();
  const std::uint32_t tcpPort = kFirstTcpPort + platform::CurrentProcessId() % kTcpPorts;
  const std::string line = platform::HasPseudoTerminals() ? "pty:" + (folder / "line").string() : fmt::format("tcp:{}", tcpPort);
  device_ = platform::HasPseudoTerminals() ? (folder / "line").string() : fmt::format("tcp:127.0.0.1:{}", tcpPort);

  std::vector<std::string> arguments = {"--line", line, "--seed", "1"};
  for (const DemoMeter& meter : DemoMeters()) arguments.push_back(fmt::format("{}:{}{}", meter.address, meter.type, meter.more));
  const std::string program = platform::ProgramPath();
  const std::string simulator = program.substr(0, program.find_last_of("/\\") + 1) + platform::ProgramFileName("ostrel-meter");
  std::string error;
  if (!meters_.Start(simulator, arguments, error)) throw Failure(kExitPort, error);
  WaitForLine();
}

DemoLine::~DemoLine() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void DemoLine::WaitForLine() {
  std::error_code ignored;
  for (int step = 0; step < kLineSteps; ++step) {
    if (!meters_.Running()) throw Failure(kExitPort, "ostrel-meter ended at once");
    // A TCP port cannot be seen; the first pass finds it or tries again.
    if (!platform::HasPseudoTerminals() || std::filesystem::exists(device_, ignored)) return;
    platform::Sleep(kLineStepMs);
  }
  throw Failure(kExitPort, device_ + ": did not appear");
}

Config DemoLine::MakeConfig() const {
  Config config;
  config.file = "demo";
  config.logFile = (std::filesystem::path(folder_) / "demo.log").string();
  config.writeLog = (std::filesystem::path(folder_) / "writes.log").string();
  config.clockCorrectionDays = 7;
  ChannelConfig& channel = config.channels.emplace_back();
  channel.port = "COM1";
  channel.device = device_;
  channel.pollPeriodSeconds = 1;
  for (const DemoMeter& meter : DemoMeters()) channel.meters.push_back(MakeMeter(meter));
  return config;
}

}  // namespace ostrel::host
