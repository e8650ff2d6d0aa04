// ostrel-host check: reads the configuration, opens the ports, reads one tag of each meter, and reports each as a line.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "Protocol/model/TagCatalogue.h"
#include "host/program/Commands.h"
#include "host/program/DoctorReport.h"
#include "host/session/Session.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kConnectionId = kFirstDaId + kTagConnectionState;
constexpr std::uint32_t kSerialNumberId = kFirstDaId;

// The serial number needs an open access channel, so that it also shows that the password is right.
Config ConfigFor(const CommonOptions& options, const Plugin& plugin) {
  Config config = ReadConfig(options.config);
  // The tags that it names are looked at too, though others are read.
  (void)Session(plugin, config, Session::Clocks::LeaveAlone);
  for (ChannelConfig& channel : config.channels) {
    for (MeterConfig& meter : channel.meters) {
      meter.exchange = true;
      meter.tags = {{.text = std::to_string(kSerialNumberId), .place = {}}, {.text = std::to_string(kConnectionId), .place = {}}};
    }
  }
  return config;
}

bool Answers(const MeterReadings& meter) {
  return std::all_of(meter.readings.begin(), meter.readings.end(),
                     [](const TagReading& reading) { return reading.quality == kQualityGood && reading.value != Value(false); });
}

/// Prints the meters that answer, and keeps what is left for the doctor.
class CheckReport {
 public:
  explicit CheckReport(bool json) : json_(json) {}

  void Add(const ChannelConfig& channel, const PassReport& pass) {
    ChannelConfig silent = channel;
    silent.meters.clear();
    for (const MeterReadings& meter : pass.meters) {
      if (!Answers(meter)) silent.meters.push_back(meter.meter->config);
      if (json_) {
        PrintTags(channel.port, meter);
      } else if (Answers(meter)) {
        const MeterConfig& config = meter.meter->config;
        Print(fmt::format("{} {} address {} {}: {}\n", channel.port, config.name, config.address, meter.meter->type.display,
                          ValueText(meter.readings.front().value)));
      }
    }
    if (!silent.meters.empty()) troubled_.push_back(silent);
  }

  [[nodiscard]] const std::vector<ChannelConfig>& Troubled() const { return troubled_; }
  void AddPort(const ChannelConfig& channel) {
    std::erase_if(troubled_, [&channel](const ChannelConfig& other) { return other.port == channel.port; });
    troubled_.push_back(channel);
  }

 private:
  static void PrintTags(const std::string& port, const MeterReadings& meter) {
    for (std::size_t i = 0; i < meter.tags.size(); ++i) {
      Print(TagJson(port, meter.meter->config, meter.meter->tags[meter.tags[i]].definition, meter.readings[i]) + '\n');
    }
  }

  bool json_;
  std::vector<ChannelConfig> troubled_;
};

// A port without meters is opened all the same: by a request to nobody.
void OpenIdlePorts(Session& session) {
  for (const auto& channel : session.Channels()) {
    if (!channel->Meters().empty()) continue;
    constexpr std::uint8_t kTestOfNobody[] = {0xFF, 0x00, 0x00, 0x70};
    std::uint8_t answer[4] = {};
    std::uint32_t count = sizeof answer;
    channel->Protocol().LockExchange();
    channel->Protocol().TransmitAndRecieve(kTestOfNobody, sizeof kTestOfNobody, answer, &count, 0);
    channel->Protocol().UnlockExchange();
  }
}

// False when somebody ended it. The ports are free again afterwards.
bool AskMeters(const Plugin& plugin, const Config& config, CheckReport& report) {
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  session.Start(
      [&](Channel& channel, const PassReport& pass) {
        report.Add(channel.Config(), pass);
        return true;
      },
      1);
  const bool finished = session.WaitUntilDone();
  session.Stop();
  OpenIdlePorts(session);
  for (const LogLine& line : session.Events().TakeNew()) fmt::print(stderr, "{}\n", line.text);
  for (const auto& channel : session.Channels()) {
    if (!session.Services().PortProblem(channel->Config().port).empty()) report.AddPort(channel->Config());
  }
  return finished;
}

}  // namespace

ExitCode CommandCheck(const CommonOptions& options) {
  const Plugin plugin = Plugin::Load(options.module);
  const Config config = ConfigFor(options, plugin);
  CheckReport report(options.json);
  if (!AskMeters(plugin, config, report)) return kExitInterrupted;
  const std::vector<MeterType> types = ReadMeterTypes(*plugin.CreateProtocol());
  DoctorReport doctor(options.json);
  for (const ChannelConfig& channel : report.Troubled()) doctor.Examine(channel, types, Depth::Cause);
  return report.Troubled().empty() ? kExitDone : std::max(doctor.Result(), kExitUnanswered);
}

}  // namespace ostrel::host
