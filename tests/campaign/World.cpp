#include "tests/campaign/World.h"

#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "simulator/Random.h"
#include "tests/campaign/Scheduler.h"
#include "tests/campaign/Site.h"
#include "tests/campaign/System.h"
#include "tests/campaign/Violation.h"

namespace ostrel::campaign {
namespace {

std::vector<std::unique_ptr<Site>> sites;

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, " %02X", unsigned{byte});
    text += digits;
  }
  return text.empty() ? " -" : text;
}

std::string Describe(const Exchange& exchange) {
  return "    " + std::to_string(exchange.atMs) + " ms, thread " + std::to_string(exchange.thread) + ":" + Hex(exchange.request) + " >" +
         Hex(exchange.received) + (exchange.faults.empty() ? "" : "   [" + exchange.faults + "]") + "\n";
}

void RunSites(const Scenario& scenario, VirtualTime& time, Scheduler& scheduler) {
  for (std::uint32_t channel = 0; channel < scenario.channels.size(); ++channel) {
    sites.push_back(std::make_unique<Site>(scenario, channel, time));
  }
  std::vector<Fibre*> hosts;
  for (const auto& site : sites) hosts.push_back(scheduler.Start("host", [&site] { site->Run(); }));
  for (Fibre* const each : hosts) scheduler.Join(each);
  if (scheduler.Alive() != 1) Violate(Invariant::NoLeak, std::to_string(scheduler.Alive() - 1) + " threads are left");
}

}  // namespace

SeedResult RunWorld(const Scenario& scenario) {
  const std::size_t before = BlocksInUse();
  SeedResult result;
  {
    VirtualTime time(scenario.startUtcMs, scenario.startTick);
    platform::ReplaceClock(&time);
    Scheduler scheduler(sim::MixSeeds(scenario.seed, 12));
    RunSites(scenario, time, scheduler);
    for (const auto& site : sites) {
      result.exchanges += site->Wire().Exchanges();
      result.faults += site->Wire().Applied();
    }
    result.trace = scheduler.Trace();
    sites.clear();
    platform::ReplaceClock(nullptr);
  }
  sites.shrink_to_fit();
  ForgetSystem();
  // What is kept from the first world on is not counted.
  static bool warm = false;
  if (std::exchange(warm, true) && BlocksInUse() > before) Violate(Invariant::NoLeak, std::to_string(BlocksInUse() - before) + " pieces of memory were not given back");
  return result;
}

std::string DescribeWorld() {
  std::string text;
  for (std::size_t i = 0; i < sites.size(); ++i) {
    text += "  the last exchanges of line " + std::to_string(i) + ":\n";
    for (const Exchange& exchange : sites[i]->Wire().Record()) text += Describe(exchange);
  }
  return text;
}

std::uint64_t WorldExchanges() {
  std::uint64_t count = 0;
  for (const auto& site : sites) count += site->Wire().Exchanges();
  return count;
}

}  // namespace ostrel::campaign
