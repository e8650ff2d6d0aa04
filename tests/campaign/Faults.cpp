// What each fault does to one exchange, or to the line and its meters from there on.
#include <algorithm>

#include "simulator/Bytes.h"
#include "simulator/Random.h"
#include "tests/campaign/Line.h"
#include "tests/campaign/Scheduler.h"

namespace ostrel::campaign {
namespace {

constexpr std::uint8_t kReadMemory = 0x06;
constexpr std::size_t kRecordAnswer = 11;

using Salt = std::uint64_t;

std::int64_t Below(Salt salt, std::uint64_t count) { return static_cast<std::int64_t>(salt % count); }
std::int64_t Until(std::int64_t milliseconds) { return scheduler->TrueUtcMs() + milliseconds; }

Bytes Noise(Salt salt, std::size_t count) {
  sim::Random random(salt);
  Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random.Next());
  return bytes;
}

Bytes SomeNoise(Salt salt) { return Noise(salt, 1 + salt % 12); }

std::ptrdiff_t Place(const Bytes& bytes, Salt salt) { return bytes.empty() ? 0 : Below(salt, bytes.size()); }

void FlipBits(Bytes& bytes, Salt salt) {
  if (bytes.empty()) return;
  sim::Random random(salt);
  for (std::uint64_t bits = 1 + random.Below(3); bits > 0; --bits) {
    const std::uint64_t bit = random.Below(bytes.size() * 8);
    bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
  }
}

/// Another answer with a right check.
void Replace(Bytes& answer, Bytes other) {
  answer = std::move(other);
  sim::AppendCheck(answer);
}

void CloseChannel(const Passing& passing) {
  if (passing.meter != nullptr) passing.meter->CloseChannel();
}

void ChangePeriod(Line&, Passing& passing, Salt salt) {
  if (passing.meter == nullptr) return;
  auto& minutes = passing.meter->Settings().profileMinutes[0];
  if (minutes != 0) minutes = salt % 2 == 0 ? 30 : 10;
}

void SetClockBack(Line&, Passing& passing, Salt salt) {
  if (passing.meter == nullptr) return;
  const sim::MeterView view = passing.meter->View(Until(0));
  passing.meter->Clock().Set(view.wall.Shown(view.now) - Below(salt, 1000), Until(0));
}

void MakeNoise(Line& line, Passing&, Salt salt) {
  const std::int64_t gapUs = 1000 * (5 + Below(salt, 300));
  const std::int64_t count = std::min<std::int64_t>(1500, 30'000'000 / gapUs);
  line.Arrive(Noise(salt, static_cast<std::size_t>(count)), Until(0) * 1000, gapUs);
  line.noisyUntil = Until(count * (gapUs + 11'000'000 / line.plan.known.baud) / 1000);
}

// clang-format off
constexpr FaultKind kKinds[] = {
    {"lost byte", [](Line&, Passing& it, Salt salt) { if (!it.answer.empty()) it.answer.erase(it.answer.begin() + Place(it.answer, salt)); }},
    {"flipped bits", [](Line&, Passing& it, Salt salt) { FlipBits(it.answer, salt); }},
    {"cut", [](Line&, Passing& it, Salt salt) { if (it.answer.size() > 1) it.answer.resize(1 + salt % (it.answer.size() - 1)); }},
    {"merged", [](Line& line, Passing& it, Salt) { line.heldBack = std::exchange(it.answer, {}); }},
    {"doubled", [](Line&, Passing& it, Salt) { it.after = it.answer; }},
    {"late", [](Line& line, Passing& it, Salt salt) { it.lateMs = Below(salt, 5 * line.plan.known.timeoutMs); }},
    {"echo", [](Line&, Passing& it, Salt) { it.before.insert(it.before.end(), it.request.begin(), it.request.end()); }},
    {"echo in part", [](Line&, Passing& it, Salt salt) { it.before.assign(it.request.begin(), it.request.begin() + 1 + Place(it.request, salt)); }},
    {"echo damaged", [](Line&, Passing& it, Salt salt) { FlipBits(it.before = it.request, salt); }},
    {"other address", [](Line&, Passing& it, Salt salt) {
      if (it.answer.size() < 4) return;
      it.answer[0] = static_cast<std::uint8_t>(salt);
      Replace(it.answer, {it.answer.begin(), it.answer.end() - 2});
    }},
    {"status", [](Line&, Passing& it, Salt salt) {
      if (!it.answer.empty()) Replace(it.answer, {it.answer[0], static_cast<std::uint8_t>(1 + salt % 15)});
    }},
    {"port vanishes", [](Line& line, Passing&, Salt salt) { line.downUntil = Until(100 + Below(salt, 15'000)); line.failed = true; }},
    {"stuck line", [](Line& line, Passing& it, Salt salt) { line.stuckUntil = Until(Below(salt, 20'000)); it.answer.clear(); }},
    {"drip", [](Line&, Passing& it, Salt salt) { it.gapMs = 1 + Below(salt, 40); }},
    {"noise before", [](Line&, Passing& it, Salt salt) { it.before = SomeNoise(salt); }},
    {"noise between", [](Line&, Passing& it, Salt salt) {
      const Bytes noise = SomeNoise(salt);
      it.answer.insert(it.answer.begin() + Place(it.answer, salt), noise.begin(), noise.end());
    }},
    {"noise after", [](Line&, Passing& it, Salt salt) { it.after = SomeNoise(salt); }},
    {"endless noise", MakeNoise},
    {"meter restarts", [](Line& line, Passing& it, Salt salt) {
      line.silentAddress = it.request[0];
      line.silentUntil = Until(500 + Below(salt, 5000));
      it.answer.clear();
      CloseChannel(it);
    }},
    {"access lapses", [](Line&, Passing& it, Salt) { CloseChannel(it); }},
    {"password refused", [](Line& line, Passing& it, Salt salt) { line.refusedUntil = Until(Below(salt, 10'000)); CloseChannel(it); }},
    {"empty record", [](Line&, Passing& it, Salt) {
      if (it.request[1] != kReadMemory || it.answer.size() != kRecordAnswer) return;
      Bytes blank(kRecordAnswer - 2, 0xFF);
      blank[0] = it.answer[0];
      Replace(it.answer, blank);
    }},
    {"period changes", ChangePeriod},
    {"meter clock back", SetClockBack},
    {"silence", [](Line&, Passing& it, Salt) { it.answer.clear(); }},
};
// clang-format on

}  // namespace

const std::span<const FaultKind> kFaultKinds = kKinds;

}  // namespace ostrel::campaign
