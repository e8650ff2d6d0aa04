// What each fault does to one exchange, or to the line and its meters from there on.
#include <algorithm>
#include <utility>

#include "simulator/Bytes.h"
#include "simulator/Random.h"
#include "tests/campaign/Line.h"

namespace ostrel::campaign {
namespace {

constexpr std::uint8_t kReadMemory = 0x06;

Bytes Noise(std::uint64_t salt, std::size_t count) {
  sim::Random random(salt);
  Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random.Next());
  return bytes;
}

std::ptrdiff_t Place(const Bytes& bytes, std::uint64_t salt) {
  return static_cast<std::ptrdiff_t>(bytes.empty() ? 0 : salt % bytes.size());
}

void FlipBits(Bytes& bytes, std::uint64_t salt) {
  if (bytes.empty()) return;
  sim::Random random(salt);
  for (std::uint64_t bits = 1 + random.Below(3); bits > 0; --bits) {
    const std::uint64_t bit = random.Below(bytes.size() * 8);
    bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
  }
}

void ChangeFrame(Bytes& frame, std::size_t at, std::uint8_t byte) {
  if (frame.size() < 4) return;
  frame.resize(frame.size() - 2);
  frame[at] = byte;
  sim::AppendCheck(frame);
}

void GiveStatus(Bytes& answer, std::uint64_t salt) {
  if (answer.empty()) return;
  answer = {answer[0], static_cast<std::uint8_t>(1 + salt % 15)};
  sim::AppendCheck(answer);
}

/// A record that was never written, with a right check.
void EmptyRecord(std::span<const std::uint8_t> request, Bytes& answer) {
  if (request[1] != kReadMemory || answer.size() != 11) return;
  answer.resize(9);
  std::fill(answer.begin() + 1, answer.end(), 0xFF);
  sim::AppendCheck(answer);
}

}  // namespace

void Line::Spoil(const Fault& fault, Passing& passing) {
  ++applied_;
  passing.faults += (passing.faults.empty() ? "" : ", ") + std::string(NameOf(fault.kind));
  if (fault.kind <= FaultKind::Status) {
    SpoilAnswer(fault, passing);
  } else if (fault.kind <= FaultKind::NoiseEndless) {
    SpoilWire(fault, passing);
  } else {
    SpoilMeter(fault, passing);
  }
}

void Line::SpoilAnswer(const Fault& fault, Passing& passing) {
  const std::uint64_t salt = fault.salt >> 8;
  Bytes& answer = passing.answer;
  const Bytes request(passing.request.begin(), passing.request.end());
  switch (fault.kind) {
    case FaultKind::LostByte:
      if (!answer.empty()) answer.erase(answer.begin() + Place(answer, salt));
      return;
    case FaultKind::FlippedBits:
      return FlipBits(answer, salt);
    case FaultKind::Cut:
      if (answer.size() > 1) answer.resize(1 + salt % (answer.size() - 1));
      return;
    case FaultKind::Merged:
      heldBack_ = std::exchange(answer, {});
      return;
    case FaultKind::Doubled:
      passing.after = answer;
      return;
    case FaultKind::Late:
      passing.lateMs = static_cast<std::int64_t>(salt % (5 * plan_.timeoutMs));
      return;
    case FaultKind::Echo:
      passing.before.insert(passing.before.end(), request.begin(), request.end());
      return;
    case FaultKind::EchoInPart:
      passing.before.assign(request.begin(), request.begin() + 1 + Place(request, salt));
      return;
    case FaultKind::EchoDamaged:
      passing.before = request;
      return FlipBits(passing.before, salt);
    case FaultKind::OtherAddress:
      return ChangeFrame(answer, 0, static_cast<std::uint8_t>(salt));
    default:
      return GiveStatus(answer, salt);
  }
}

void Line::SpoilWire(const Fault& fault, Passing& passing) {
  const std::uint64_t salt = fault.salt >> 8;
  const std::int64_t now = time_.True();
  switch (fault.kind) {
    case FaultKind::PortVanishes:
      downUntil_ = now + 100 + static_cast<std::int64_t>(salt % 15'000);
      failed_ = true;
      return;
    case FaultKind::Stuck:
      stuckUntil_ = now + static_cast<std::int64_t>(salt % 20'000);
      passing.answer.clear();
      return;
    case FaultKind::Drip:
      passing.gapMs = 1 + static_cast<std::int64_t>(salt % 40);
      return;
    case FaultKind::NoiseBefore:
      passing.before = Noise(salt, 1 + salt % 12);
      return;
    case FaultKind::NoiseBetween: {
      const Bytes noise = Noise(salt, 1 + salt % 12);
      passing.answer.insert(passing.answer.begin() + Place(passing.answer, salt), noise.begin(), noise.end());
      return;
    }
    case FaultKind::NoiseAfter:
      passing.after = Noise(salt, 1 + salt % 12);
      return;
    default: {
      const std::int64_t gapUs = 1000 * (5 + static_cast<std::int64_t>(salt % 300));
      const std::size_t count = std::min<std::size_t>(1500, static_cast<std::size_t>(30'000'000 / gapUs));
      Arrive(Noise(salt, count), NowUs(), gapUs);
      noisyUntil_ = now + static_cast<std::int64_t>(count) * (gapUs + CharacterUs()) / 1000;
      return;
    }
  }
}

void Line::SpoilMeter(const Fault& fault, Passing& passing) {
  const std::uint64_t salt = fault.salt >> 8;
  const std::int64_t now = time_.True();
  sim::Meter* const meter = MeterOf(passing.request[0]);
  switch (fault.kind) {
    case FaultKind::MeterRestarts:
      silentAddress_ = passing.request[0];
      silentUntil_ = now + 500 + static_cast<std::int64_t>(salt % 5000);
      passing.answer.clear();
      [[fallthrough]];
    case FaultKind::AccessLapses:
      if (meter != nullptr) meter->CloseChannel();
      return;
    case FaultKind::PasswordRefused:
      refusedUntil_ = now + static_cast<std::int64_t>(salt % 10'000);
      if (meter != nullptr) meter->CloseChannel();
      return;
    case FaultKind::EmptyRecord:
      return EmptyRecord(passing.request, passing.answer);
    case FaultKind::PeriodChanges:
      if (meter != nullptr && meter->Settings().profileMinutes[0] != 0) meter->Settings().profileMinutes[0] = salt % 2 == 0 ? 30 : 10;
      return;
    case FaultKind::MeterClockBack:
      if (meter != nullptr) meter->Clock().Set(meter->View(now).wall.Shown(meter->View(now).now) - static_cast<sim::MeterTime>(salt % 1000), now);
      return;
    default:
      passing.answer.clear();
      return;
  }
}

}  // namespace ostrel::campaign
