#include "tests/campaign/Scenario.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

#include "simulator/MeterTypes.h"
#include "simulator/Random.h"
#include "tests/expectation/Expectation.h"

namespace ostrel::campaign {
namespace {

using sim::Random;

template <class Value, std::size_t Size>
Value Pick(Random& random, const Value (&values)[Size]) {
  return values[random.Below(Size)];
}

template <class Number = std::uint32_t>
Number Below(Random& random, std::uint64_t count) {
  return static_cast<Number>(random.Below(count));
}

bool Chance(Random& random, std::uint64_t oneIn) { return random.Below(oneIn) == 0; }

std::int64_t Utc(int year, int month, int day, int hour) {
  return sim::FromCivil({.year = year, .month = month, .day = day, .hour = hour}) * 1000;
}

/// Anywhere in a year, or shortly before a moment at which clocks and calendars do something.
std::int64_t StartTime(Random& random) {
  const std::int64_t moments[] = {Utc(2026, 3, 29, 1), Utc(2026, 10, 25, 1), Utc(2026, 7, 31, 22), Utc(2026, 12, 31, 23)};
  const auto before = Below<std::int64_t>(random, 3'600'000);
  if (Chance(random, 3)) return Pick(random, moments) - before;
  return Utc(2026, 1, 5, 0) + Below<std::int64_t>(random, 350 * 86'400ULL) * 1000 + before % 1000;
}

std::uint32_t AnyType(Random& random) { return sim::AllMeterTypes()[random.Below(sim::AllMeterTypes().size())].id; }

sim::MeterSpec MakeSpec(Random& random, std::int64_t start) {
  constexpr std::uint8_t kPeriods[] = {30, 30, 15, 60, 3};
  sim::MeterSpec spec;
  spec.address = 1 + Below(random, 240);
  spec.type = AnyType(random);
  if (!sim::FindMeterType(spec.type)->singlePhase && Chance(random, 2)) {
    spec.ku = static_cast<std::uint16_t>(1 + random.Below(200));
    spec.ki = static_cast<std::uint16_t>(1 + random.Below(100));
  }
  spec.password1 = Chance(random, 3) ? "1234" : "000000";
  if (Chance(random, 3)) spec.password2 = "222222";
  spec.offsetSeconds = Below<std::int32_t>(random, 400) - 200;
  spec.channelTimeoutSeconds = Chance(random, 4) ? 5 : 240;
  spec.closesAfterEach = Chance(random, 12);
  spec.busyEvery = Chance(random, 5) ? 3 + Below(random, 20) : 0;
  spec.summerTime = Chance(random, 2);
  spec.profileMinutes = {Pick(random, kPeriods), Pick(random, kPeriods), Pick(random, kPeriods)};
  spec.seed = random.Next();
  if (Chance(random, 3)) {
    const sim::MeterTime from = start / 1000 + 3600 - Below<sim::MeterTime>(random, 2 * 86'400);
    spec.powerCuts.push_back({from, from + 60 + Below<sim::MeterTime>(random, 8 * 3600)});
  }
  return spec;
}

/// Tags that can be read from such a meter, a few of each kind; and those by which it is commanded.
std::vector<std::uint32_t> MakeTags(Random& random, const sim::MeterSpec& spec, std::size_t count) {
  constexpr std::uint32_t kOwn[] = {97, 98, 99, 100, 102, 185, 210, 211};
  constexpr std::uint32_t kWritten[] = {6, 7, 212, 213, 214, 219, 222, 223, 230, 242};
  std::set<std::uint32_t> tags;
  for (std::size_t i = 0; i < count * 3 && tags.size() < count; ++i) {
    const std::uint32_t tag = Chance(random, 3) ? Pick(random, kWritten) : Below(random, 244);
    const bool own = std::ranges::find(kOwn, tag) != std::end(kOwn);
    if (own || sim::ExpectedTag(sim::Meter(spec, 1).View(Utc(2026, 6, 1, 12)), tag)) tags.insert(tag);
  }
  std::vector<std::uint32_t> shuffled(tags.begin(), tags.end());
  for (std::size_t i = shuffled.size(); i > 1; --i) std::swap(shuffled[i - 1], shuffled[random.Below(i)]);
  return shuffled;
}

/// A meter that is not what the host believes.
void Disguise(Random& random, MeterPlan& plan) {
  plan.twin = true;
  if (Chance(random, 2)) {
    plan.known.level1Password = "999999";
  } else {
    plan.type = AnyType(random);
    plan.spec.ku = plan.spec.ki = 1;
  }
}

MeterPlan MakeMeter(Random& random, std::int64_t start, std::size_t tags) {
  constexpr std::uint32_t kHolds[] = {0, 0, 1, 15, 60};
  MeterPlan plan;
  plan.spec = MakeSpec(random, start);
  plan.type = plan.spec.type;
  const bool wrong = Chance(random, 6) && plan.spec.password2.empty();
  plan.known = {.level1Password = plan.spec.password1,
                .level2Password = wrong ? "wrong2" : plan.spec.password2,
                .voltageCoefficient = 0,
                .currentCoefficient = 0,
                .failHoldSeconds = Pick(random, kHolds)};
  plan.known.eventLog = Below<std::uint8_t>(random, 8);
  plan.tags = MakeTags(random, plan.spec, tags);
  if (Chance(random, 14)) Disguise(random, plan);
  return plan;
}

void MakeMeters(Random& random, std::int64_t start, std::vector<MeterPlan>& meters) {
  const std::size_t count = 1 + random.Below(Chance(random, 4) ? 16 : 4);
  for (std::size_t i = 0; i < count; ++i) {
    MeterPlan meter = MakeMeter(random, start, 2 + random.Below(count > 4 ? 8 : 25));
    const bool twin = !meters.empty() && Chance(random, 20);
    if (twin) meter.spec.address = meters[0].spec.address;
    const auto same = std::ranges::find(meters, meter.spec.address, [](const MeterPlan& each) { return each.spec.address; });
    if (same != meters.end()) {
      if (!twin) continue;
      meter.twin = same->twin = true;
    }
    meter.known.address = meter.spec.address;
    meters.push_back(std::move(meter));
  }
}

ChannelPlan MakeChannel(Random& random, std::int64_t start, bool days) {
  constexpr std::uint32_t kBauds[] = {1200, 2400, 9600, 9600, 19200, 115200};
  constexpr std::uint32_t kTimeouts[] = {200, 300, 500, 500, 1000};
  constexpr std::uint32_t kGuards[] = {50, 100, 100, 300};
  ChannelPlan channel;
  channel.known.baud = Pick(random, kBauds);
  channel.known.retries = static_cast<std::uint16_t>(1 + random.Below(5));
  channel.known.pollPeriodSeconds = days ? 600 : Below(random, 6);
  channel.known.timeoutMs = Pick(random, kTimeouts);
  channel.known.preSendPauseMs = Chance(random, 4) ? 20 : 0;
  channel.clockCorrectionDays = Chance(random, 2) ? 1 + Below(random, 3) : 0;
  channel.known.lateGuardMs = Pick(random, kGuards);
  channel.known.echo = Chance(random, 8);
  channel.keepsOrder = !Chance(random, 3);
  MakeMeters(random, start, channel.meters);
  return channel;
}

void AddOperations(Random& random, Scenario& scenario) {
  for (std::uint64_t left = random.Below(40); left > 0; --left) {
    Operation operation;
    operation.atMs = Below<std::int64_t>(random, static_cast<std::uint64_t>(scenario.durationMs * 7 / 10));
    operation.kind = &kOperationKinds[random.Below(kOperationKinds.size())];
    operation.channel = Below(random, scenario.channels.size());
    operation.meter = Below(random, scenario.channels[operation.channel].meters.size());
    operation.salt = random.Next();
    scenario.operations.push_back(operation);
  }
  std::ranges::stable_sort(scenario.operations, {}, &Operation::atMs);
}

/// Alone, in neighbouring exchanges, or all over the place.
void AddFaults(Random& random, Scenario& scenario) {
  constexpr std::uint32_t kMost = 900;
  const std::uint64_t style = random.Below(4);
  if (style == 3) return;
  const auto add = [&](std::uint32_t channel, std::uint32_t exchange) {
    const FaultKind* const kind = &kFaultKinds[random.Below(kFaultKinds.size())];
    scenario.faults.push_back({.kind = kind, .channel = channel, .exchange = exchange, .salt = random.Next()});
  };
  for (std::uint32_t channel = 0; channel < scenario.channels.size(); ++channel) {
    const std::uint64_t step = style == 2 ? 3 + random.Below(20) : 60;
    for (std::uint32_t at = Below(random, step); at < kMost; at += 1 + Below(random, step)) {
      add(channel, at);
      if (style == 1) add(channel, at + 1);
    }
  }
}

}  // namespace

Scenario MakeScenario(std::uint64_t seed) {
  Random random(sim::MixSeeds(seed, 11));
  Scenario scenario;
  scenario.seed = seed;
  scenario.startUtcMs = StartTime(random);
  scenario.startTick = Chance(random, 3) ? 0U - Below(random, 60'000) : 1000;
  const bool days = Chance(random, 6);
  scenario.durationMs = days ? 40LL * 3'600'000 : 30'000 + Below<std::int64_t>(random, 200'000);
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
  const auto say = std::back_inserter(text);
  for (const ChannelPlan& channel : scenario.channels) {
    fmt::format_to(say, "  line {} baud, timeout_ms {}, retries {}{}{}\n", channel.known.baud, channel.known.timeoutMs,
                   channel.known.retries, channel.known.echo ? ", echo" : "", channel.keepsOrder ? "" : ", overtaking");
    for (const MeterPlan& meter : channel.meters) {
      if (meter.dropped) continue;
      fmt::format_to(say, "    meter {}:{}, tags {}\n", meter.spec.address, meter.spec.type, fmt::join(meter.tags, " "));
    }
  }
  for (const auto& [atMs, kind, channel, meter, salt] : scenario.operations)
    fmt::format_to(say, "  {} ms: {} (line {}, meter {})\n", atMs, kind->name, channel, meter);
  for (const auto& [kind, channel, exchange, salt] : scenario.faults)
    fmt::format_to(say, "  exchange {} of line {}: {}\n", exchange, channel, kind->name);
  return text;
}

}  // namespace ostrel::campaign
