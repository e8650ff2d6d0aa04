// ostrel-host plan: what a pass of each channel costs against its period, and, asked for it, the proof on the line.
#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <utility>

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
  const std::string repeats = cost.repeats == 0 ? "" : fmt::format(" ({} of them repeated by the port)", cost.repeats);
  return fmt::format("{} requests{}, {} bytes sent, {} received, {:.2f} s", cost.requests, repeats, cost.sentBytes,
                     cost.receivedBytes, cost.seconds);
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

Cost SumOf(const PassReport& report) {
  Cost sum;
  for (const MeterReadings& meter : report.meters) {
    sum.requests += meter.link.requests;
    sum.repeats += meter.link.repeats;
    sum.sentBytes += static_cast<std::uint32_t>(meter.link.sentBytes);
    sum.receivedBytes += static_cast<std::uint32_t>(meter.link.receivedBytes);
  }
  return sum;
}

// Of each channel what went over its line between the ends of two passes.
std::map<std::string, Cost> Measure(Session& session) {
  std::map<std::string, Cost> before;
  std::map<std::string, Cost> measured;
  session.Start(
      [&](Channel& channel, const PassReport& report) {
        const std::string& port = channel.Config().port;
        const Cost sum = SumOf(report);
        const Cost start = std::exchange(before[port], sum);
        measured[port] = {.requests = sum.requests - start.requests,
                          .repeats = sum.repeats - start.repeats,
                          .sentBytes = sum.sentBytes - start.sentBytes,
                          .receivedBytes = sum.receivedBytes - start.receivedBytes,
                          .seconds = report.seconds};
        return false;
      },
      kMeasuredPass);
  (void)session.WaitUntilDone();
  session.Stop();
  return measured;
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
