#include "tests/campaign/Line.h"

#include <algorithm>
#include <utility>

#include "Protocol/link/Port.h"
#include "simulator/Bytes.h"
#include "tests/campaign/Scheduler.h"
#include "tests/campaign/Violation.h"

namespace ostrel::campaign {
namespace {

constexpr std::uint8_t kOpenChannel = 0x01;
constexpr std::uint8_t kNobody = 0;

std::uint8_t asked = kNobody;
constexpr std::uint8_t kTestLine = 0x00;
constexpr std::size_t kRecorded = 20;
constexpr std::int64_t kTurnaroundUs = 12'000;

/// What a master does to be let in, or to find its place, belongs to the transaction around it.
bool IsHousekeeping(std::span<const std::uint8_t> request) {
  return request.size() > 1 && (request[1] == kOpenChannel || request[1] == kTestLine);
}

Bytes WithCheck(Bytes bytes) {
  sim::AppendCheck(bytes);
  return bytes;
}

}  // namespace

sim::MeterView Moment::View() const {
  const sim::MeterView live = meter->View(0);
  return {live.spec, live.model, settings, wall, now};
}

std::uint8_t AskedAddress() { return asked; }

Line::Line(const Scenario& scenario, std::uint32_t channel, VirtualTime& time)
    : plan_(scenario.channels[channel]), time_(time) {
  for (const MeterPlan& meter : plan_.meters) meters_.push_back(std::make_unique<sim::Meter>(meter.spec, scenario.seed));
  std::ranges::copy_if(scenario.faults, std::back_inserter(faults_), [&](const Fault& each) { return each.channel == channel; });
}

bool Line::Open() {
  const OwnWork own;
  failed_ = time_.True() < downUntil_;
  arrivals_.clear();
  awaited_ = true;
  return !failed_;
}

// The pauses that were ordered, and nothing while the answer to the last request may still come within its time.
void Line::Check(std::span<const std::uint8_t> request) {
  const std::int64_t now = time_.True();
  if (!awaited_ && drills_ == DrillsFired()) Violate(Invariant::Accounted, "a request was sent and nobody waited for the answer to the one before");
  const auto inTime = [this](const Arrival& each) { return each.answers == exchanges_ && each.atUs <= (sentMs_ + plan_.timeoutMs) * 1000; };
  // Who was disturbed a moment ago may be wrong about what comes; the next ones show whether he takes harm.
  const bool undisturbed = exchanges_ > lastFaultAt_ + 2 && std::ranges::all_of(arrivals_, [](const Arrival& each) { return each.answers != 0; });
  if (undisturbed && std::ranges::any_of(arrivals_, inTime))
    Violate(Invariant::NotTooEarly, "a request was sent while the answer to the one before was coming");
  if (now - busyUntilMs_ < plan_.preSendPauseMs) Violate(Invariant::NotTooEarly, "the pause before sending was not kept");
  if (sending) sending(request);
}

void Line::Begin(std::span<const std::uint8_t> request) {
  const std::uint32_t self = Scheduler::Current()->Self();
  if (IsHousekeeping(request)) return;
  auto known = std::ranges::find_if(last_, [&](const auto& each) { return each.thread == self && each.address == request[0]; });
  if (known == last_.end()) known = last_.insert(last_.end(), Transaction{.thread = self, .address = request[0], .request = {}, .moments = {}});
  if (!std::ranges::equal(known->request, request)) {
    known->request.assign(request.begin(), request.end());
    known->moments.clear();
    known->spoiled = false;
  }
  known->status.reset();
  for (const auto& meter : meters_) {
    if (meter->Spec().address != request[0]) continue;
    const sim::MeterView view = meter->View(time_.True());
    known->moments.push_back({.meter = meter.get(), .settings = view.settings, .wall = view.wall, .now = view.now});
  }
}

Bytes Line::Ask(std::span<const std::uint8_t> request) {
  Bytes answer;
  if (time_.True() < stuckUntil_ || (time_.True() < silentUntil_ && request[0] == silentAddress_)) return answer;
  for (const auto& meter : meters_) {
    const Bytes said = meter->Answer(request, time_.True());
    // Two that speak at once: the wire carries what neither said.
    if (!answer.empty() && !said.empty()) {
      for (std::size_t i = 0; i < std::min(answer.size(), said.size()); ++i) answer[i] &= said[i];
    } else if (!said.empty()) {
      answer = said;
    }
  }
  const bool opens = request.size() > 1 && request[1] == kOpenChannel;
  if (opens && !answer.empty() && time_.True() < refusedUntil_) answer = WithCheck({request[0], 3});
  return answer;
}

bool Line::Send(std::span<const std::uint8_t> request) {
  const OwnWork own;
  if (failed_ || time_.True() < downUntil_) {
    failed_ = true;
    return false;
  }
  Check(request);
  Scheduler::Current()->Sleep((static_cast<std::int64_t>(request.size()) * CharacterUs() + 999) / 1000);
  Begin(request);
  Passing passing{.request = request, .before = {}, .answer = Ask(request), .after = {}, .faults = {}};
  const Bytes truth = passing.answer;
  if (!heldBack_.empty()) passing.before = std::exchange(heldBack_, {});
  for (; nextFault_ < faults_.size() && faults_[nextFault_].exchange <= exchanges_; ++nextFault_) {
    if (!calm_ && faults_[nextFault_].exchange == exchanges_) Spoil(faults_[nextFault_], passing);
  }
  if (plan_.line.echo && passing.faults.find("echo") == std::string::npos) {
    passing.before.insert(passing.before.begin(), request.begin(), request.end());
  }
  ++exchanges_;
  sentMs_ = busyUntilMs_ = time_.True();
  awaited_ = false;
  asked = request[0];
  drills_ = DrillsFired();
  Note(passing, truth);
  const bool answered = !passing.answer.empty() && passing.lateMs == 0;
  const auto characters = static_cast<std::int64_t>(request.size() + passing.before.size() + passing.answer.size() + passing.after.size());
  spentMs_ += characters * (CharacterUs() / 1000 + 1 + passing.gapMs) + plan_.preSendPauseMs + PauseForBaudRate(plan_.baud) + 40 +
              (answered ? 0 : plan_.timeoutMs + plan_.line.lateGuardMs);
  Deliver(passing);
  return !failed_;
}

void Line::Note(const Passing& passing, const Bytes& truth) {
  Scheduler& scheduler = *Scheduler::Current();
  for (const std::uint8_t byte : passing.request) scheduler.Note(byte);
  const Bytes request(passing.request.begin(), passing.request.end());
  record_.push_back({.atMs = scheduler.Elapsed(), .thread = scheduler.Self(), .request = request, .received = {}, .faults = passing.faults});
  if (record_.size() > kRecorded) record_.pop_front();
  if (!passing.faults.empty()) lastFaultAt_ = exchanges_;
  for (Transaction& each : last_) {
    if (each.thread != scheduler.Self() || each.address != passing.request[0]) continue;
    if (!passing.faults.empty() || truth.empty()) each.spoiled = true;
    if (passing.faults.empty() && truth.size() == 4 && !IsHousekeeping(passing.request)) each.status = truth[1];
  }
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
  Arrive(passing.before, NowUs(), 0);
  const std::int64_t behind = NowUs() + static_cast<std::int64_t>(passing.before.size()) * CharacterUs();
  std::int64_t from = behind + kTurnaroundUs + passing.lateMs * 1000;
  if (plan_.keepsOrder) from = std::max(from, lastArrivalUs_);
  Arrive(passing.answer, from, passing.gapMs * 1000, exchanges_);
  from += static_cast<std::int64_t>(passing.answer.size()) * (CharacterUs() + passing.gapMs * 1000);
  Arrive(passing.after, from + CharacterUs(), 0);
  if (!passing.answer.empty()) lastArrivalUs_ = std::max(lastArrivalUs_, from);
}

std::size_t Line::Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) {
  const OwnWork own;
  if (waitMs != 0) awaited_ = true;
  Scheduler& scheduler = *Scheduler::Current();
  const std::int64_t deadline = NowUs() + std::int64_t{waitMs} * 1000;
  for (;;) {
    if (failed_) return 0;
    std::size_t count = 0;
    while (count < size && !arrivals_.empty() && arrivals_.front().atUs <= NowUs()) {
      buffer[count++] = arrivals_.front().byte;
      arrivals_.pop_front();
    }
    if (count != 0 || NowUs() >= deadline) {
      if (!record_.empty()) record_.back().received.insert(record_.back().received.end(), buffer, buffer + count);
      if (count != 0) busyUntilMs_ = time_.True();
      return count;
    }
    const std::int64_t next = arrivals_.empty() ? deadline : std::min(deadline, arrivals_.front().atUs);
    scheduler.Sleep(std::max<std::int64_t>(1, (next - NowUs() + 999) / 1000));
    failed_ = time_.True() < downUntil_;
  }
}

const Transaction* Line::Last(std::uint32_t thread, std::uint8_t address) const {
  const auto found = std::ranges::find_if(last_, [&](const auto& each) { return each.thread == thread && each.address == address; });
  return found == last_.end() ? nullptr : &*found;
}

bool Line::Disturbed(std::uint32_t since) const {
  const std::int64_t now = time_.True();
  return (applied_ != 0 && lastFaultAt_ >= since) || now < stuckUntil_ || now < silentUntil_ || now < refusedUntil_ || now < downUntil_;
}

void Line::Calm() {
  calm_ = true;
  heldBack_.clear();
  downUntil_ = stuckUntil_ = silentUntil_ = refusedUntil_ = 0;
}

sim::Meter* Line::MeterOf(std::uint8_t address) {
  const auto found = std::ranges::find_if(meters_, [&](const auto& each) { return each->Spec().address == address; });
  return found == meters_.end() ? nullptr : found->get();
}

}  // namespace ostrel::campaign
