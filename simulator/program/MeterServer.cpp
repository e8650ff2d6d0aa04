#include "simulator/program/MeterServer.h"

#include <algorithm>

#include "platform/clock.h"

namespace ostrel::sim {
namespace {

constexpr std::int64_t kLongestWaitMs = 50;  // a stop is noticed within this
constexpr std::uint32_t kDownStepMs = 10;

}  // namespace

void MeterServer::Run(bool (*stopped)()) {
  while (!stopped()) Step();
  port_.Close();
}

void MeterServer::Step() {
  const std::int64_t now = platform::UtcMilliseconds();
  if (line_.IsDown(now) || !open_) return WaitWhileDown();
  DeliverDue(now);
  const std::size_t count = port_.Read(buffer_, WaitMs(now));
  const std::int64_t then = platform::UtcMilliseconds();
  if (count != 0) {
    Take(count, then);
  } else if (const auto unfinished = framer_.GiveUp(then); !unfinished.empty()) {
    Transact(unfinished, then);
  }
}

void MeterServer::WaitWhileDown() {
  if (open_) port_.Close();
  open_ = false;
  due_.clear();
  framer_ = {};
  platform::Sleep(kDownStepMs);
  std::string ignored;
  if (!line_.IsDown(platform::UtcMilliseconds())) open_ = port_.Open(ignored);
}

void MeterServer::Take(std::size_t count, std::int64_t nowMs) {
  for (const auto& request : framer_.Feed({buffer_.data(), count}, nowMs)) Transact(request, nowMs);
  DeliverDue(nowMs);
}

void MeterServer::Transact(const std::vector<std::uint8_t>& request, std::int64_t nowMs) {
  for (Delivery& delivery : line_.Transact(request, nowMs)) due_.emplace(delivery.atMs, std::move(delivery.bytes));
}

void MeterServer::DeliverDue(std::int64_t nowMs) {
  while (!due_.empty() && due_.begin()->first <= nowMs) {
    port_.Write(due_.begin()->second);
    due_.erase(due_.begin());
  }
}

int MeterServer::WaitMs(std::int64_t nowMs) const {
  const std::int64_t untilDue = due_.empty() ? kLongestWaitMs : due_.begin()->first - nowMs;
  return static_cast<int>(std::clamp<std::int64_t>(untilDue, 0, kLongestWaitMs));
}

}  // namespace ostrel::sim
