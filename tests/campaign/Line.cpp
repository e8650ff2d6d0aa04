#include "tests/campaign/Line.h"

#include <algorithm>

#include "Protocol/link/Port.h"
#include "host/ports/OwedCopies.h"
#include "simulator/Bytes.h"
#include "tests/campaign/Scheduler.h"
#include "tests/campaign/System.h"

namespace ostrel::campaign {
namespace {

constexpr std::uint8_t kOpenChannel = 0x01;
constexpr std::uint8_t kTestLine = 0x00;
constexpr std::size_t kRecorded = 20;
constexpr std::int64_t kTurnaroundUs = 12'000;
/// So long after a fault the port watches a meter more closely, and puts some requests off for answers that may still come.
constexpr std::int64_t kTroubledMs = 610'000;
/// What comes between the last look at the input and a request may lie there.
constexpr std::int64_t kUnreadMs = 500;

/// What a master does to be let in, or to find its place, belongs to the transaction around it.
bool IsHousekeeping(const Bytes& request) {
  return request.size() > 1 && (request[1] == kOpenChannel || request[1] == kTestLine);
}

std::int64_t NowMs() { return scheduler->TrueUtcMs(); }
std::int64_t NowUs() { return NowMs() * 1000; }

}  // namespace

Moment MomentOf(sim::Meter& meter) {
  const sim::MeterView view = meter.View(NowMs());
  return {.meter = &meter, .settings = view.settings, .wall = view.wall, .now = view.now};
}

sim::MeterView Moment::View() const {
  const sim::MeterView live = meter->View(0);
  return {live.spec, live.model, settings, wall, now};
}

Line::Line(const Scenario& scenario, std::uint32_t channel) : plan(scenario.channels[channel]) {
  for (const MeterPlan& meter : plan.meters) meters.push_back(std::make_unique<sim::Meter>(meter.spec, scenario.seed));
  std::ranges::copy_if(scenario.faults, std::back_inserter(faults_), [&](const Fault& each) { return each.channel == channel; });
}

bool Line::Open() {
  const OwnWork own;
  failed = NowMs() < downUntil;
  arrivals_.clear();
  awaited_ = true;
  return !failed;
}

// The pauses that were ordered, and nothing while the answer to the last request may still come within its time.
void Line::Check() {
  if (!awaited_ && drills_ == drillsFired)
    Violate("accounted", "a request was sent and nobody waited for the answer to the one before");
  const std::int64_t longUnreadUs = NowUs() - (kUnreadMs + plan.known.preSendPauseMs) * 1000;
  if (drills_ == drillsFired && !arrivals_.empty() && arrivals_.front().atUs < longUnreadUs)
    Violate("accounted", "a request was sent and input from before was still unread");
  const auto inTime = [this](const Arrival& each) {
    return each.answers == exchanges && each.atUs <= (sentMs_ + plan.known.timeoutMs) * 1000;
  };
  // Who was disturbed a moment ago may be wrong about what comes; the next ones show whether he takes harm.
  const bool undisturbed = exchanges > lastFaultAt_ + 2 && drills_ == drillsFired && !strayHeard_ &&
                           std::ranges::all_of(arrivals_, [](const Arrival& each) { return each.answers != 0; });
  if (undisturbed && std::ranges::any_of(arrivals_, inTime))
    Violate("not too early", "a request was sent while the answer to the one before was coming");
  if (undisturbed && NowMs() - busyUntilMs_ < plan.known.preSendPauseMs)
    Violate("not too early", "the pause before sending was not kept");
  sending();
}

void Line::Begin(const Bytes& request) {
  if (IsHousekeeping(request)) return;
  Transaction& known = last_[{scheduler->Self(), request[0]}];
  if (known.request != request) known = {.request = request, .moments = {}};
  known.status.reset();
  for (const auto& meter : meters) {
    if (meter->Spec().address == request[0]) known.moments.push_back(MomentOf(*meter));
  }
}

Bytes Line::Ask(const Bytes& request) {
  Bytes answer;
  if (NowMs() < stuckUntil || (NowMs() < silentUntil && request[0] == silentAddress)) return answer;
  for (const auto& meter : meters) {
    const Bytes said = meter->Answer(request, NowMs());
    // Two that speak at once: the wire carries what neither said.
    if (answer.empty()) answer = said;
    for (std::size_t i = 0; i < std::min(answer.size(), said.size()); ++i) answer[i] &= said[i];
  }
  if (IsHousekeeping(request) && request[1] == kOpenChannel && !answer.empty() && NowMs() < refusedUntil) {
    answer = {request[0], static_cast<std::uint8_t>(sim::Status::LowLevel)};
    sim::AppendCheck(answer);
  }
  return answer;
}

void Line::Spoil(Passing& passing) {
  if (!heldBack.empty()) passing.before = std::exchange(heldBack, {});
  for (; nextFault_ < faults_.size() && faults_[nextFault_].exchange <= exchanges; ++nextFault_) {
    const Fault& fault = faults_[nextFault_];
    if (calm_ || fault.exchange != exchanges) continue;
    ++applied;
    passing.faults += (passing.faults.empty() ? "" : ", ") + std::string(fault.kind->name);
    fault.kind->strike(*this, passing, fault.salt >> 8);
  }
  if (plan.known.echo && passing.faults.find("echo") == std::string::npos)
    passing.before.insert(passing.before.begin(), passing.request.begin(), passing.request.end());
}

bool Line::Send(std::span<const std::uint8_t> request) {
  const OwnWork own;
  failed = failed || NowMs() < downUntil;
  if (failed) return false;
  Check();
  scheduler->Wait((static_cast<std::int64_t>(request.size()) * CharacterUs() + 999) / 1000);
  Passing passing{.request = {request.begin(), request.end()}, .before = {}, .answer = {}, .after = {}, .faults = {}};
  Begin(passing.request);
  passing.answer = Ask(passing.request);
  const auto asked = std::ranges::find_if(meters, [&](const auto& each) { return each->Spec().address == request[0]; });
  if (asked != meters.end()) passing.meter = asked->get();
  const Bytes truth = passing.answer;
  Spoil(passing);
  ++exchanges;
  sentMs_ = busyUntilMs_ = NowMs();
  awaited_ = strayHeard_ = false;
  askedAddress = request[0];
  Note(passing, truth);
  drills_ = drillsFired;
  Deliver(passing);
  return !failed;
}

void Line::Note(const Passing& passing, const Bytes& truth) {
  for (const std::uint8_t byte : passing.request) scheduler->Note(byte);
  record.push_back({scheduler->Elapsed(), scheduler->Self(), passing.request, {}, passing.faults});
  if (record.size() > kRecorded) record.pop_front();
  const bool clean = passing.faults.empty();
  if (!clean) lastFaultAt_ = exchanges;
  if (!clean || truth.empty() || drills_ != drillsFired) troubledUntil = scheduler->Awake() + kTroubledMs;
  const auto known = last_.find({scheduler->Self(), passing.request[0]});
  if (known == last_.end()) return;
  if (!clean || truth.empty()) known->second.spoiled = true;
  if (clean && truth.size() == 4 && !IsHousekeeping(passing.request)) known->second.status = truth[1];
}

void Line::Arrive(const Bytes& bytes, std::int64_t fromUs, std::int64_t gapUs, std::uint32_t answers) {
  std::int64_t at = fromUs;
  for (const std::uint8_t byte : bytes) {
    at += CharacterUs() + gapUs;
    const auto behind = std::ranges::upper_bound(arrivals_, at, {}, &Arrival::atUs);
    arrivals_.insert(behind, {.atUs = at, .byte = byte, .answers = answers});
  }
}

void Line::Deliver(const Passing& passing) {
  const auto& [request, meter, before, answer, after, lateMs, gapMs, faults] = passing;
  const auto characters = static_cast<std::int64_t>(request.size() + before.size() + answer.size() + after.size());
  spentMs += characters * (CharacterUs() / 1000 + 1 + gapMs) + plan.known.preSendPauseMs + PauseForBaudRate(plan.known.baud) + 40;
  if (answer.empty() || lateMs != 0) spentMs += plan.known.timeoutMs;
  if (answer.size() <= host::kStatusFrame || lateMs != 0) spentMs += plan.known.lateGuardMs;
  Arrive(before, NowUs(), 0);
  std::int64_t from = NowUs() + static_cast<std::int64_t>(before.size()) * CharacterUs() + kTurnaroundUs + lateMs * 1000;
  if (plan.keepsOrder) from = std::max(from, lastArrivalUs_);
  Arrive(answer, from, gapMs * 1000, exchanges);
  from += static_cast<std::int64_t>(answer.size()) * (CharacterUs() + gapMs * 1000);
  Arrive(after, from + CharacterUs(), 0);
  if (!answer.empty()) lastArrivalUs_ = std::max(lastArrivalUs_, from);
}

std::size_t Line::Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) {
  const OwnWork own;
  if (waitMs != 0) awaited_ = true;
  const std::int64_t deadline = NowUs() + std::int64_t{waitMs} * 1000;
  for (;;) {
    if (failed) return 0;
    std::size_t count = 0;
    for (; count < size && !arrivals_.empty() && arrivals_.front().atUs <= NowUs(); arrivals_.pop_front()) {
      buffer[count++] = arrivals_.front().byte;
      strayHeard_ = strayHeard_ || (arrivals_.front().answers != exchanges && arrivals_.front().answers != 0);
    }
    if (count != 0 || NowUs() >= deadline) {
      if (!record.empty()) record.back().received.insert(record.back().received.end(), buffer, buffer + count);
      if (count != 0) busyUntilMs_ = NowMs();
      return count;
    }
    const std::int64_t next = arrivals_.empty() ? deadline : std::min(deadline, arrivals_.front().atUs);
    scheduler->Wait(std::max<std::int64_t>(1, (next - NowUs() + 999) / 1000));
    failed = NowMs() < downUntil;
  }
}

const Transaction* Line::Last(std::uint32_t thread, std::uint32_t address) const {
  const auto found = last_.find({thread, address});
  return found == last_.end() ? nullptr : &found->second;
}

bool Line::Disturbed(std::uint32_t since) const {
  return (applied != 0 && lastFaultAt_ >= since) || NowMs() < std::max({stuckUntil, silentUntil, refusedUntil, downUntil});
}

void Line::Calm() {
  calm_ = true;
  heldBack.clear();
  downUntil = stuckUntil = silentUntil = refusedUntil = 0;
}

}  // namespace ostrel::campaign
