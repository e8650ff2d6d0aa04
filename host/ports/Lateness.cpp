#include "host/ports/Lateness.h"

#include <algorithm>

namespace ostrel::host {
namespace {

constexpr int kSilencesToForget = 3;
constexpr std::uint32_t kDecay = 64;
/// No answer takes so long: the computer slept meanwhile, or its ticks jumped. Taken for the meter's, it would keep every request
/// to it waiting for as long again; ms.
constexpr std::uint32_t kNotTheMeterMs = 60'000;
/// What is told is a value for a time-out, so it is rounded up to one that somebody would set.
constexpr std::uint32_t kToldStepMs = 100;

std::uint32_t OneAndAHalf(std::uint32_t ms) { return ms / 2 * 3; }

}  // namespace

void Lateness::Measured(std::uint8_t address, std::uint32_t ms) {
  if (ms > kNotTheMeterMs) return;
  Meter& meter = meters_[address];
  meter.usualMs = std::max<std::uint32_t>(ms, 1);
  Suspected(address, ms);
}

void Lateness::CameAfter(std::uint8_t address, std::uint32_t ms) {
  if (ms > answerMs_ && ms <= kNotTheMeterMs) Tell(address, meters_[address], ms);
}

void Lateness::Suspected(std::uint8_t address, std::uint32_t ms) {
  if (ms > kNotTheMeterMs) return;
  Meter& meter = meters_[address];
  if (ms > answerMs_) {
    meter.worstMs = std::max(meter.worstMs, ms);
  } else {
    meter.worstMs -= meter.worstMs / kDecay;
    if (meter.worstMs <= answerMs_) meter.worstMs = 0;
  }
}

// One late answer may be an accident; two are told, by the later of them.
void Lateness::Tell(std::uint8_t address, Meter& meter, std::uint32_t ms) {
  if (ms <= OneAndAHalf(meter.toldMs)) return;
  const std::uint32_t first = std::exchange(meter.firstLateMs, ms);
  if (first == 0) return;
  ms = std::max(first, ms);
  meter.firstLateMs = 0;
  meter.toldMs = (ms + kToldStepMs - 1) / kToldStepMs * kToldStepMs;
  if (listener_) listener_(address, meter.toldMs);
}

void Lateness::StayedSilent(std::uint8_t address) {
  Meter& meter = meters_[address];
  if (meter.worstMs != 0 && ++meter.silences >= kSilencesToForget) {
    meter.worstMs = 0;
    meter.silences = 0;
  }
}

std::uint32_t Lateness::AnswerWaitMs(std::uint8_t address) const {
  return std::max(answerMs_, std::min(OneAndAHalf(WorstMs(address)), kLongestAnswerWaitMs));
}

// Twice as long as its answers take, so that a second copy that was sent without need is met and not left behind.
std::uint32_t Lateness::SoonMs(std::uint8_t address) const {
  const std::uint32_t usual = UsualMs(address);
  const std::uint32_t most = AnswerWaitMs(address);
  return usual == 0 ? most : std::min(most, 2 * usual);
}

std::uint32_t Lateness::UsualMs(std::uint8_t address) const {
  const auto meter = meters_.find(address);
  return meter == meters_.end() ? 0 : meter->second.usualMs;
}

std::uint32_t Lateness::WorstMs(std::uint8_t address) const {
  const auto meter = meters_.find(address);
  return meter == meters_.end() ? 0 : meter->second.worstMs;
}

}  // namespace ostrel::host
