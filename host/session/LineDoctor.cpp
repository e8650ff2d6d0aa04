#include "host/session/LineDoctor.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/session/MeterFrames.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kListenMs = 2000;
constexpr std::uint32_t kPatienceMs = 3000;  // behind the time-out, for an answer that comes late
constexpr std::uint32_t kTries = 3;
constexpr std::uint32_t kAsks = 50;
constexpr std::uint32_t kBurstGapMs = 8;
constexpr std::size_t kStatusAnswer = 4;
constexpr std::size_t kClockAnswer = 11;
constexpr std::uint8_t kDone = 0;
constexpr std::uint8_t kBusy = 6;

std::uint8_t AddressOf(const MeterConfig& meter) { return static_cast<std::uint8_t>(meter.address); }

// Unlike the test request, which a meter answers with the very same bytes, this one cannot be taken for its own echo.
std::vector<std::uint8_t> SerialRequest(std::uint8_t address) { return {address, 0x08, 0x00}; }

}  // namespace

LineDoctor::LineDoctor(const ChannelConfig& channel, const std::vector<MeterType>& types) : channel_(channel), types_(types) {
  for (MeterConfig& meter : channel_.meters) meter.type = FindMeterType(types, meter.type).id;
}

LineDoctor::~LineDoctor() = default;

Diagnosis LineDoctor::DiagnoseLine() {
  std::string reason;
  wire_ = Wire::Open(channel_, reason);
  if (wire_ == nullptr) {
    const bool serial = channel_.device.find(':') == std::string::npos && channel_.device != "simulated";
    return DiagnosePort(reason, serial ? platform::LookAtSerialDevice(channel_.device) : platform::SerialDevice{});
  }
  const std::size_t bytes = wire_->Listen(kListenMs).bytes.size();
  if (bytes != 0) return {.finding = Finding::Chatter, .bytes = bytes};
  return {};
}

// One long wait, for who answers late; then some ordinary ones, for what was lost on the way.
Heard LineDoctor::AskPatiently(const Bytes& request) {
  Heard heard = wire_->Ask(request, channel_.timeoutMs + kPatienceMs);
  for (std::uint32_t tries = 1; tries < kTries && heard.bytes.empty() && !wire_->Failed() && !platform::Interrupted(); ++tries) {
    heard = wire_->Ask(request, channel_.timeoutMs);
  }
  return heard;
}

// The answer's frame, or nothing; a busy meter is asked again.
LineDoctor::Bytes LineDoctor::Ask(const Bytes& request) {
  const Bytes whole = WithCheck(request);
  Bytes answer;
  for (std::uint32_t tries = 0; tries < kTries; ++tries) {
    const Heard heard = wire_->Ask(request, channel_.timeoutMs);
    const auto frame = AnswerIn(heard, whole, channel_.echo);
    answer.assign(frame.begin(), frame.end());
    if (!answer.empty() && (answer.size() != kStatusAnswer || answer[1] != kBusy)) break;
  }
  return answer;
}

bool LineDoctor::OpenChannel(std::uint8_t address, const std::string& password) {
  const Bytes answer = Ask(OpeningRequest(address, password));
  return answer.size() == kStatusAnswer && answer[1] == kDone;
}

// As the plug-in does it: level 2 first where there is a password for it.
Finding LineDoctor::OpenAccess(const MeterConfig& meter) {
  if (!meter.level2Password.empty() && OpenChannel(AddressOf(meter), meter.level2Password)) return Finding::Good;
  if (!OpenChannel(AddressOf(meter), meter.level1Password)) return Finding::Level1Refused;
  return meter.level2Password.empty() ? Finding::Good : Finding::Level2Refused;
}

// The type's own number stands in the variant's third byte.
Finding LineDoctor::CheckType(const MeterConfig& meter, Diagnosis& found) {
  const Bytes variant = Ask({AddressOf(meter), 0x08, 0x12});
  if (variant.size() != kVariantAnswer) return Finding::Unsteady;
  found.type = variant[3] >> 4;
  for (const MeterType& type : types_) {
    if (type.id != found.type) continue;
    found.typeName = type.display;
    return FindMeterType(types_, meter.type).id == found.type ? Finding::Good : Finding::WrongType;
  }
  return Finding::UnknownType;
}

void LineDoctor::ReadSerialAndClock(std::uint8_t address, Diagnosis& found) {
  const Bytes serial = Ask(SerialRequest(address));
  if (serial.size() == kSerialAnswer) {
    found.serial = fmt::format("{:08}", std::uint32_t{serial[1]} << 24 | serial[2] << 16 | serial[3] << 8 | serial[4]);
  }
  const Bytes clock = Ask({address, 0x04, 0x00});
  if (clock.size() == kClockAnswer) found.clockOffsetS = ClockOffset(clock);
}

void LineDoctor::Measure(const Bytes& request, Diagnosis& found) {
  const Bytes whole = WithCheck(request);
  const std::size_t wanted = kSerialAnswer + (channel_.echo ? whole.size() : 0);
  std::vector<std::uint32_t> turnarounds;
  std::vector<std::uint32_t> gaps;
  for (found.asked = 0; found.asked < kAsks && !platform::Interrupted(); ++found.asked) {
    const Heard heard = wire_->Ask(request, channel_.timeoutMs, wanted);
    if (AnswerIn(heard, whole, channel_.echo).empty()) continue;
    turnarounds.push_back(heard.firstMs);
    gaps.push_back(heard.longestGapMs);
  }
  found.lost = found.asked - static_cast<std::uint32_t>(turnarounds.size());
  if (turnarounds.empty()) return;
  std::sort(turnarounds.begin(), turnarounds.end());
  std::sort(gaps.begin(), gaps.end());
  found.medianMs = turnarounds[turnarounds.size() / 2];
  found.worstMs = turnarounds.back();
  found.gapMs = gaps[gaps.size() / 2];
}

Diagnosis LineDoctor::DiagnoseMeter(const MeterConfig& meter, Depth depth) {
  const Bytes request = SerialRequest(AddressOf(meter));
  if (wire_->Failed()) return {.finding = Finding::PortFailed, .reason = channel_.device + ": has gone"};
  Diagnosis found = DiagnoseAnswer(AskPatiently(request), WithCheck(request), channel_.echo, channel_.timeoutMs);
  if (found.finding != Finding::Good) return found;
  const Finding access = OpenAccess(meter);
  found.finding = access;
  if (!IsUsable(access)) return found;
  const Finding type = CheckType(meter, found);
  if (type != Finding::Good) found.finding = type;
  if (!IsUsable(found.finding)) return found;
  ReadSerialAndClock(AddressOf(meter), found);
  if (depth == Depth::Cause) return found;
  Measure(request, found);
  if (found.lost == found.asked) found.finding = Finding::Unsteady;
  if (found.finding != Finding::Good || found.gapMs < kBurstGapMs) return found;
  found.finding = Finding::Bursts;
  const auto latency = platform::LookAtSerialDevice(channel_.device).latencyMs;
  if (latency) found.hint = fmt::format("it stands at {} ms in /sys/class/tty/…/device/latency_timer", *latency);
  return found;
}

}  // namespace ostrel::host
