// ostrel-host doctor: what is wrong with a line or a meter, and what to do about it; searches for meters.
#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "host/program/Commands.h"
#include "host/program/DoctorReport.h"
#include "host/session/Failure.h"
#include "host/session/LineScan.h"
#include "host/session/Plugin.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"
#include "host/show/ProgressBar.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

Config DeviceAlone(const DoctorOptions& options) {
  Config config;
  ChannelConfig& channel = config.channels.emplace_back();
  channel.port = "COM1";
  channel.device = options.device;
  channel.timeoutMs = options.timeoutMs;
  return config;
}

Config ConfigFor(const DoctorOptions& options) {
  if (options.common.config.empty() == options.device.empty()) throw Failure(kExitUsage, "give --config FILE or --device DEVICE");
  Config config = options.device.empty() ? ReadConfig(options.common.config) : DeviceAlone(options);
  if (options.channel.empty()) return config;
  std::erase_if(config.channels, [&options](const ChannelConfig& channel) { return channel.port != options.channel; });
  if (config.channels.empty()) throw Failure(kExitUsage, "there is no channel \"" + options.channel + "\"");
  return config;
}

ScanPlan PlanOf(const DoctorOptions& options, const ChannelConfig& channel) {
  ScanPlan plan{.addresses = {}, .speeds = options.scanSpeeds};
  if (plan.speeds && channel.device.starts_with("tcp:")) {
    throw Failure(kExitUsage, channel.port + ": speed and parity are set at the gateway");
  }
  if (!options.scanAddresses.empty()) {
    plan.addresses = ParseAddresses(options.scanAddresses);
  } else {
    for (const MeterConfig& meter : channel.meters) plan.addresses.push_back(meter.address);
  }
  if (plan.addresses.empty())
    throw Failure(kExitUsage, "there is no meter whose speed could be searched; give --scan-addresses too");
  return plan;
}

void WriteConfig(const std::string& file, const std::string& text) {
  const std::filesystem::path path = platform::PathOf(file);
  if (std::filesystem::exists(path)) throw Failure(kExitUsage, file + ": is there already");
  std::ofstream stream(path, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) throw Failure(kExitOutput, file + ": cannot be written");
}

ExitCode ScanLine(const DoctorOptions& options, const Config& config, const std::vector<MeterType>& types) {
  if (config.channels.size() != 1) throw Failure(kExitUsage, "one line is searched at a time; name it with --channel");
  const ChannelConfig& channel = config.channels.front();
  const ScanPlan plan = PlanOf(options, channel);
  if (!options.writeConfig.empty() && std::filesystem::exists(platform::PathOf(options.writeConfig))) {
    throw Failure(kExitUsage, options.writeConfig + ": is there already");
  }
  fmt::print(stderr, "{}: searching {} addresses{}, at most {} s\n", channel.port, plan.addresses.size(),
             plan.speeds ? " at every speed and parity" : "", (LongestScan(channel, plan).count() + 999) / 1000);
  ProgressBar bar;
  const ScanResult result = Scan(channel, plan, [&](const ScanProgress& progress) {
    if (progress.asked != 0) return bar.Show(progress.asked, plan.addresses.size());
    const std::string mode = fmt::format("{}: {} baud, parity {}", channel.port, progress.baud, progress.parity);
    bar.Hide();
    fmt::print(stderr, "{}\n", mode);
    bar.Begin(mode);
  });
  bar.Hide();
  if (result.meters.empty()) {
    Complain(channel.port + ": no meter answered" +
             (result.strayBytes == 0 ? "; look at the wires (A and B changed over?) and the meters' power"
                                     : fmt::format("; {} bytes came that were no answer", result.strayBytes)));
    return result.interrupted ? kExitInterrupted : kExitUnanswered;
  }
  const std::string text = ChannelText(channel, result, types);
  Print(options.common.json ? ScanJson(channel, result) + '\n' : text);
  if (!options.writeConfig.empty()) WriteConfig(options.writeConfig, text);
  return result.interrupted ? kExitInterrupted : kExitDone;
}

}  // namespace

ExitCode CommandDoctor(const DoctorOptions& options) {
  const Config config = ConfigFor(options);
  const Plugin plugin = Plugin::Load(options.common.module);
  const std::vector<MeterType> types = ReadMeterTypes(*plugin.CreateProtocol());
  if (options.scanSpeeds || !options.scanAddresses.empty()) return ScanLine(options, config, types);
  DoctorReport report(options.common.json);
  for (const ChannelConfig& channel : config.channels) report.Examine(channel, types, Depth::Measure);
  return report.Result();
}

}  // namespace ostrel::host
