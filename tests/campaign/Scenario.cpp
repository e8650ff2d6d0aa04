#include "tests/campaign/Scenario.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "simulator/Expectation.h"
#include "simulator/MeterTypes.h"
#include "simulator/Random.h"

namespace ostrel::campaign {
namespace {

using sim::Random;

constexpr const char* kFaultNames[] = {
    "lost byte",        "flipped bits",    "cut",          "merged",       "doubled",        "late",       "echo",
    "echo in part",     "echo damaged",    "other address", "status",      "port vanishes",  "stuck line", "drip",
    "noise before",     "noise between",   "noise after",  "endless noise", "meter restarts", "access lapses", "password refused",
    "empty record",     "period changes",  "meter clock back", "silence"};
static_assert(std::size(kFaultNames) == static_cast<std::size_t>(FaultKind::Count));

constexpr const char* kOperationNames[] = {"use tag",        "leave tag",      "write",           "remove meter",
                                           "add meter",      "restart",        "signal and start", "change settings",
                                           "switch exchange", "list profile",  "read archive",    "ask times",
                                           "wrong clock",    "suspend",        "fail allocation", "fail call"};
static_assert(std::size(kOperationNames) == static_cast<std::size_t>(OperationKind::Count));

template <class Value, std::size_t Size>
Value Pick(Random& random, const Value (&values)[Size]) {
  return values[random.Below(Size)];
}

bool Chance(Random& random, std::uint64_t oneIn) { return random.Below(oneIn) == 0; }

std::int64_t Utc(int year, unsigned month, unsigned day, int hour) {
  const std::chrono::sys_days date = std::chrono::year(year) / month / day;
  return (std::chrono::seconds(date.time_since_epoch()).count() + hour * 3600) * 1000;
}

/// Anywhere in a year, or shortly before a moment at which clocks and calendars do something.
std::int64_t StartTime(Random& random) {
  const std::int64_t moments[] = {Utc(2026, 3, 29, 1), Utc(2026, 10, 25, 1), Utc(2026, 7, 31, 22), Utc(2026, 12, 31, 23)};
  const std::int64_t before = static_cast<std::int64_t>(random.Below(3'600'000));
  if (Chance(random, 3)) return Pick(random, moments) - before;
  return Utc(2026, 1, 5, 0) + static_cast<std::int64_t>(random.Below(350 * 86'400ULL)) * 1000 + before % 1000;
}

sim::MeterTime Local(std::int64_t utcMs) { return utcMs / 1000 + 3600; }

sim::MeterSpec MakeSpec(Random& random, std::int64_t start) {
  const std::uint8_t periods[] = {30, 30, 15, 60, 3};
  sim::MeterSpec spec;
  spec.address = static_cast<std::uint32_t>(1 + random.Below(240));
  spec.type = sim::AllMeterTypes()[random.Below(sim::AllMeterTypes().size())].id;
  if (!sim::FindMeterType(spec.type)->singlePhase && Chance(random, 2)) {
    spec.ku = static_cast<std::uint16_t>(1 + random.Below(200));
    spec.ki = static_cast<std::uint16_t>(1 + random.Below(100));
  }
  spec.password1 = Chance(random, 3) ? "1234" : "000000";
  if (Chance(random, 3)) spec.password2 = "222222";
  spec.offsetSeconds = static_cast<std::int32_t>(random.Below(400)) - 200;
  spec.channelTimeoutSeconds = Chance(random, 4) ? 5 : 240;
  spec.closesAfterEach = Chance(random, 12);
  spec.busyEvery = Chance(random, 5) ? static_cast<std::uint32_t>(3 + random.Below(20)) : 0;
  spec.summerTime = Chance(random, 2);
  spec.profileMinutes = {Pick(random, periods), Pick(random, periods), Pick(random, periods)};
  spec.seed = random.Next();
  if (Chance(random, 3)) {
    const sim::MeterTime from = Local(start) - static_cast<sim::MeterTime>(random.Below(2 * 86'400));
    spec.powerCuts.push_back({from, from + 60 + static_cast<sim::MeterTime>(random.Below(8 * 3600))});
  }
  return spec;
}

/// Tags that can be read from such a meter, a few of each kind; and those by which it is commanded.
std::vector<std::uint32_t> MakeTags(Random& random, const sim::MeterSpec& spec, std::size_t count) {
  constexpr std::uint32_t kOwn[] = {97, 98, 99, 100, 102, 185, 210, 211};
  constexpr std::uint32_t kWritten[] = {6, 7, 212, 213, 214, 219, 222, 223, 230, 242};
  std::set<std::uint32_t> tags;
  for (std::size_t i = 0; i < count * 3 && tags.size() < count; ++i) {
    const std::uint32_t tag = Chance(random, 3) ? Pick(random, kWritten) : static_cast<std::uint32_t>(random.Below(244));
    const bool own = std::ranges::find(kOwn, tag) != std::end(kOwn);
    sim::Meter meter(spec, 1);
    if (own || sim::ExpectedTag(meter.View(Utc(2026, 6, 1, 12)), tag)) tags.insert(tag);
  }
  std::vector<std::uint32_t> shuffled(tags.begin(), tags.end());
  for (std::size_t i = shuffled.size(); i > 1; --i) std::swap(shuffled[i - 1], shuffled[random.Below(i)]);
  return shuffled;
}

/// A meter that is not what the host believes.
void Disguise(Random& random, MeterPlan& plan) {
  plan.twin = true;
  if (Chance(random, 2)) {
    plan.password1 = "999999";
  } else {
    plan.type = sim::AllMeterTypes()[random.Below(sim::AllMeterTypes().size())].id;
    plan.spec.ku = plan.spec.ki = 1;
  }
}

MeterPlan MakeMeter(Random& random, std::int64_t start, std::size_t tags) {
  const std::uint32_t holds[] = {0, 0, 1000, 15'000, 60'000};
  MeterPlan plan;
  plan.spec = MakeSpec(random, start);
  plan.type = plan.spec.type;
  plan.password1 = plan.spec.password1;
  plan.password2 = Chance(random, 6) ? "wrong2" : plan.spec.password2;
  if (plan.password2 == "wrong2" && !plan.spec.password2.empty()) plan.password2 = plan.spec.password2;
  plan.failHoldMs = Pick(random, holds);
  plan.log = static_cast<std::uint8_t>(random.Below(8));
  plan.tags = MakeTags(random, plan.spec, tags);
  if (Chance(random, 14)) Disguise(random, plan);
  return plan;
}

void MakeMeters(Random& random, std::int64_t start, ChannelPlan& channel) {
  const std::size_t count = 1 + random.Below(Chance(random, 4) ? 16 : 4);
  for (std::size_t i = 0; i < count; ++i) {
    MeterPlan meter = MakeMeter(random, start, 2 + random.Below(count > 4 ? 8 : 25));
    const bool twin = !channel.meters.empty() && Chance(random, 20);
    if (twin) meter.spec.address = channel.meters[0].spec.address;
    const auto same = std::ranges::find(channel.meters, meter.spec.address, [](const MeterPlan& each) { return each.spec.address; });
    if (same != channel.meters.end()) {
      if (!twin) continue;
      meter.twin = same->twin = true;
    }
    channel.meters.push_back(std::move(meter));
  }
}

ChannelPlan MakeChannel(Random& random, std::int64_t start, bool days) {
  const std::uint32_t bauds[] = {1200, 2400, 9600, 9600, 19200, 115200};
  const std::uint32_t timeouts[] = {200, 300, 500, 500, 1000};
  const std::uint32_t guards[] = {50, 100, 100, 300};
  ChannelPlan channel;
  channel.baud = Pick(random, bauds);
  channel.retries = static_cast<std::uint16_t>(1 + random.Below(5));
  channel.pollPeriodSeconds = days ? 600 : static_cast<std::uint32_t>(random.Below(6));
  channel.timeoutMs = Pick(random, timeouts);
  channel.preSendPauseMs = Chance(random, 4) ? 20 : 0;
  channel.clockCorrectionDays = Chance(random, 2) ? static_cast<std::uint32_t>(1 + random.Below(3)) : 0;
  channel.line = {.lateGuardMs = Pick(random, guards), .echo = Chance(random, 8), .pauseMs = channel.preSendPauseMs};
  channel.keepsOrder = !Chance(random, 3);
  MakeMeters(random, start, channel);
  return channel;
}

void AddOperations(Random& random, Scenario& scenario) {
  const std::size_t count = random.Below(40);
  for (std::size_t i = 0; i < count; ++i) {
    Operation operation;
    operation.atMs = static_cast<std::int64_t>(random.Below(static_cast<std::uint64_t>(scenario.durationMs * 7 / 10)));
    operation.kind = static_cast<OperationKind>(random.Below(static_cast<std::uint64_t>(OperationKind::Count)));
    operation.channel = static_cast<std::uint32_t>(random.Below(scenario.channels.size()));
    operation.meter = static_cast<std::uint32_t>(random.Below(scenario.channels[operation.channel].meters.size()));
    operation.salt = random.Next();
    scenario.operations.push_back(operation);
  }
  std::ranges::stable_sort(scenario.operations, {}, &Operation::atMs);
}

Fault MakeFault(Random& random, std::uint32_t channel, std::uint32_t exchange) {
  return {.kind = static_cast<FaultKind>(random.Below(static_cast<std::uint64_t>(FaultKind::Count))),
          .channel = channel,
          .exchange = exchange,
          .salt = random.Next()};
}

/// Alone, in neighbouring exchanges, or all over the place.
void AddFaults(Random& random, Scenario& scenario) {
  constexpr std::uint32_t kMost = 900;
  const std::uint64_t style = random.Below(4);
  if (style == 3) return;
  for (std::uint32_t channel = 0; channel < scenario.channels.size(); ++channel) {
    const std::uint64_t step = style == 2 ? 3 + random.Below(20) : 60;
    for (std::uint32_t at = static_cast<std::uint32_t>(random.Below(step)); at < kMost;
         at += static_cast<std::uint32_t>(1 + random.Below(step))) {
      scenario.faults.push_back(MakeFault(random, channel, at));
      if (style == 1) scenario.faults.push_back(MakeFault(random, channel, at + 1));
    }
  }
}

}  // namespace

Scenario MakeScenario(std::uint64_t seed) {
  Random random(sim::MixSeeds(seed, 11));
  Scenario scenario;
  scenario.seed = seed;
  scenario.startUtcMs = StartTime(random);
  scenario.startTick = Chance(random, 3) ? 0U - static_cast<std::uint32_t>(random.Below(60'000)) : 1000;
  const bool days = Chance(random, 6);
  scenario.durationMs = days ? 40LL * 3'600'000 : 30'000 + static_cast<std::int64_t>(random.Below(200'000));
  const std::size_t channels = Chance(random, 3) ? 1 + random.Below(4) : 1;
  for (std::size_t i = 0; i < channels; ++i) scenario.channels.push_back(MakeChannel(random, scenario.startUtcMs, days));
  AddOperations(random, scenario);
  AddFaults(random, scenario);
  return scenario;
}

std::size_t PartsOf(const Scenario& scenario) {
  std::size_t parts = scenario.operations.size() + scenario.faults.size();
  for (const ChannelPlan& channel : scenario.channels) parts += channel.meters.size();
  return parts;
}

void LeaveOut(Scenario& scenario, const std::set<std::size_t>& parts) {
  std::size_t number = 0;
  for (ChannelPlan& channel : scenario.channels) {
    for (MeterPlan& meter : channel.meters) meter.dropped = parts.contains(number++);
  }
  const auto left = [&](const auto&) { return parts.contains(number++); };
  std::erase_if(scenario.operations, left);
  std::erase_if(scenario.faults, left);
}

std::string Describe(const Scenario& scenario) {
  std::string text;
  for (const ChannelPlan& channel : scenario.channels) {
    text += "  line " + std::to_string(channel.baud) + " baud, timeout_ms " + std::to_string(channel.timeoutMs) + ", retries " +
            std::to_string(channel.retries) + (channel.line.echo ? ", echo" : "") + (channel.keepsOrder ? "" : ", overtaking") + "\n";
    for (const MeterPlan& meter : channel.meters) {
      if (meter.dropped) continue;
      text += "    meter " + std::to_string(meter.spec.address) + ":" + std::to_string(meter.spec.type) + ", tags";
      for (const std::uint32_t tag : meter.tags) text += " " + std::to_string(tag);
      text += "\n";
    }
  }
  for (const Operation& each : scenario.operations) {
    text += "  " + std::to_string(each.atMs) + " ms: " + NameOf(each.kind) + " (line " + std::to_string(each.channel) + ", meter " +
            std::to_string(each.meter) + ")\n";
  }
  for (const Fault& each : scenario.faults) {
    text += "  exchange " + std::to_string(each.exchange) + " of line " + std::to_string(each.channel) + ": " + NameOf(each.kind) + "\n";
  }
  return text;
}

const char* NameOf(FaultKind kind) { return kFaultNames[static_cast<std::size_t>(kind)]; }
const char* NameOf(OperationKind kind) { return kOperationNames[static_cast<std::size_t>(kind)]; }

}  // namespace ostrel::campaign
