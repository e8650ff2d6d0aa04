// ostrel-host check: reads the configuration, opens the ports, reads one tag of each meter, and reports each as a line.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

#include "Protocol/model/TagCatalogue.h"
#include "host/program/Commands.h"
#include "host/session/Session.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kConnectionId = kFirstDaId + kTagConnectionState;
constexpr std::uint32_t kSerialNumberId = kFirstDaId;

// The serial number needs an open access channel, so that it also shows that the password is right.
Config ConfigFor(const CommonOptions& options) {
  Config config = ReadConfig(options.config);
  for (ChannelConfig& channel : config.channels) {
    for (MeterConfig& meter : channel.meters) {
      meter.exchange = true;
      meter.tags = {{.text = std::to_string(kSerialNumberId), .place = {}}, {.text = std::to_string(kConnectionId), .place = {}}};
    }
  }
  return config;
}

class CheckReport {
 public:
  explicit CheckReport(bool json) : json_(json) {}

  void Add(const std::string& port, const PassReport& pass) {
    for (const MeterReadings& meter : pass.meters) {
      const auto good = [](const TagReading& reading) {
        return reading.quality == kQualityGood && reading.value != Value(false);
      };
      const bool answers = std::all_of(meter.readings.begin(), meter.readings.end(), good);
      allAnswer_ = allAnswer_ && answers;
      if (json_) {
        PrintTags(port, meter);
      } else {
        const MeterConfig& config = meter.meter->config;
        Print(fmt::format("{} {} address {} {}: {}\n", port, config.name, config.address, meter.meter->type.display,
                          answers ? ValueText(meter.readings.front().value) : "no answer, or no access with this password"));
      }
    }
  }

  [[nodiscard]] bool AllAnswer() const { return allAnswer_; }

 private:
  static void PrintTags(const std::string& port, const MeterReadings& meter) {
    for (std::size_t i = 0; i < meter.tags.size(); ++i) {
      Print(TagJson(port, meter.meter->config, meter.meter->tags[meter.tags[i]].definition, meter.readings[i]) + '\n');
    }
  }

  bool json_;
  bool allAnswer_ = true;
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

bool ReportPorts(Session& session) {
  bool allOpen = true;
  for (const auto& channel : session.Channels()) {
    const std::string& port = channel->Config().port;
    const std::string problem = session.Services().PortProblem(port);
    if (problem.empty()) continue;
    allOpen = false;
    fmt::print(stderr, "{}: {}\n", port, problem);
  }
  return allOpen;
}

}  // namespace

ExitCode CommandCheck(const CommonOptions& options) {
  const Config config = ConfigFor(options);
  const Plugin plugin = Plugin::Load(options.module);
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  CheckReport report(options.json);
  session.Start(
      [&](Channel& channel, const PassReport& pass) {
        report.Add(channel.Config().port, pass);
        return true;
      },
      1);
  const bool finished = session.WaitUntilDone();
  session.Stop();
  OpenIdlePorts(session);
  for (const LogLine& line : session.Events().TakeNew()) fmt::print(stderr, "{}\n", line.text);
  if (!ReportPorts(session)) return kExitPort;
  return finished && report.AllAnswer() ? kExitDone : kExitUnanswered;
}

}  // namespace ostrel::host
