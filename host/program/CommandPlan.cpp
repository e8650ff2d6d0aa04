// ostrel-host plan: what a pass of each channel costs against its period, and, asked for it, the proof on the line.
#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <map>

#include "host/program/Commands.h"
#include "host/session/PassPlan.h"
#include "host/session/Session.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"

namespace ostrel::host {
namespace {

/// The first opens channels and reads what stays; the second is like all others.
constexpr std::uint32_t kMeasuredPass = 2;

std::string CostText(const Cost& cost) {
  return fmt::format("{} requests, {} bytes sent, {} received, {:.2f} s", cost.requests, cost.sentBytes, cost.receivedBytes,
                     cost.seconds);
}

std::string PlanText(const ChannelConfig& config, const PassPlan& plan) {
  std::string text = fmt::format("{}: {} baud, poll_period_s = {}\n", config.port, config.baud, config.pollPeriodSeconds);
  for (const MeterPlan& meter : plan.meters) {
    text += fmt::format("  {} address {}: {}\n", meter.meter, meter.address, CostText(meter.cost));
    for (const FamilyCost& family : meter.families) text += fmt::format("    {}: {}\n", family.family, CostText(family.cost));
  }
  text += fmt::format("  a pass: {}\n", CostText(plan.cost));
  if (plan.cost.seconds <= config.pollPeriodSeconds) return text;
  return text + fmt::format(
                    "  that is longer than poll_period_s: values are up to {:.0f} s old; read fewer tags, or set "
                    "poll_period_s = {:.0f} and know it\n",
                    std::ceil(plan.cost.seconds), std::ceil(plan.cost.seconds));
}

/// What went over a channel's line in one pass.
class Measurement {
 public:
  explicit Measurement(Channel& channel) : channel_(channel) { Look(); }

  void Look() {
    const Cost before = seen_;
    seen_ = {};
    for (const Meter& meter : channel_.Meters()) {
      const LinkCounts counts = channel_.Link().Of(meter.config.address);
      seen_.requests += counts.requests;
      seen_.sentBytes += static_cast<std::uint32_t>(counts.sentBytes);
      seen_.receivedBytes += static_cast<std::uint32_t>(counts.receivedBytes);
    }
    last_ = {.requests = seen_.requests - before.requests,
             .sentBytes = seen_.sentBytes - before.sentBytes,
             .receivedBytes = seen_.receivedBytes - before.receivedBytes};
  }
  [[nodiscard]] Cost Last(double seconds) const {
    Cost cost = last_;
    cost.seconds = seconds;
    return cost;
  }

 private:
  Channel& channel_;
  Cost seen_;
  Cost last_;
};

std::map<std::string, Cost> Measure(Session& session) {
  std::map<const Channel*, Measurement> measurements;
  std::map<std::string, Cost> measured;
  for (const auto& channel : session.Channels()) measurements.try_emplace(channel.get(), *channel);
  session.Start(
      [&](Channel& channel, const PassReport& report) {
        Measurement& measurement = measurements.at(&channel);
        measurement.Look();
        measured[channel.Config().port] = measurement.Last(report.seconds);
        return false;
      },
      kMeasuredPass);
  (void)session.WaitUntilDone();
  session.Stop();
  return measured;
}

bool AllOpened(Session& session) {
  bool all = true;
  for (const auto& channel : session.Channels()) {
    const std::string problem = session.Services().PortProblem(channel->Config().port);
    if (problem.empty()) continue;
    fmt::print(stderr, "{}: {}\n", channel->Config().port, problem);
    all = false;
  }
  return all;
}

}  // namespace

ExitCode CommandPlan(const PlanOptions& options) {
  Config config = ReadConfig(options.common.config);
  const Plugin plugin = Plugin::Load(options.common.module);
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  std::map<std::string, Cost> measured;
  if (options.measure) measured = Measure(session);
  for (const auto& channel : session.Channels()) {
    const auto found = measured.find(channel->Config().port);
    const PassPlan plan = PlanPass(*channel, options.turnaroundMs);
    const Cost* const proof = found == measured.end() ? nullptr : &found->second;
    if (options.common.json) {
      Print(PlanJson(channel->Config(), plan, proof) + '\n');
    } else {
      Print(PlanText(channel->Config(), plan) + (proof != nullptr ? "  measured: " + CostText(*proof) + '\n' : ""));
    }
  }
  return AllOpened(session) ? kExitDone : kExitPort;
}

}  // namespace ostrel::host
