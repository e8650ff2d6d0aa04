#include "simulator/program/MeterServer.h"

#include <algorithm>
#include <utility>

#include "platform/clock.h"
#include "platform/thread.h"

namespace ostrel::sim {
namespace {

using std::chrono::microseconds;

constexpr microseconds kLongestWait{50'000};  // a stop is noticed within this
constexpr std::uint32_t kDownStepMs = 10;

}  // namespace

void MeterServer::Run(bool (*stopped)()) {
  platform::WakePrecisely();
  while (!stopped()) Step();
  port_.Close();
}

void MeterServer::Step() {
  if (line_.IsDown(platform::UtcMilliseconds()) || !open_) return WaitWhileDown();
  DeliverDue();
  Chatter();
  const std::size_t count = port_.Read(buffer_, UntilDue());
  if (count != 0) return Take(count);
  const std::int64_t now = platform::UtcMilliseconds();
  if (const auto unfinished = framer_.GiveUp(now); !unfinished.empty()) Transact(unfinished, now, Clock::now());
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

void MeterServer::Take(std::size_t count) {
  const Clock::time_point sent = Clock::now();
  const std::int64_t now = platform::UtcMilliseconds();
  for (const auto& request : framer_.Feed(Heard(count), now)) Transact(request, now, sent);
}

void MeterServer::Transact(const std::vector<std::uint8_t>& request, std::int64_t nowMs, Clock::time_point sent) {
  for (Delivery& delivery : line_.Transact(request, nowMs)) {
    due_.emplace(sent + microseconds(delivery.afterUs), std::move(delivery.bytes));
  }
}

// What is due together goes out together, as it would lie together in a receiver.
void MeterServer::DeliverDue() {
  const auto end = due_.upper_bound(Clock::now());
  std::vector<std::uint8_t> bytes;
  for (auto each = due_.begin(); each != end; ++each) bytes.insert(bytes.end(), each->second.begin(), each->second.end());
  due_.erase(due_.begin(), end);
  if (!bytes.empty()) Write(bytes);
}

void MeterServer::Chatter() {
  const std::vector<std::uint8_t> bytes = line_.Chatter(platform::UtcMilliseconds());
  if (!bytes.empty()) Write(bytes);
}

void MeterServer::Write(const std::vector<std::uint8_t>& bytes) {
  const std::optional<SerialMode> other = mode_ ? port_.OtherEnd() : std::nullopt;
  port_.Write(other && *other != *mode_ ? Receive(bytes, *mode_, *other).bytes : bytes);
}

// A meter looks at every parity bit and forgets a frame with a wrong one.
std::vector<std::uint8_t> MeterServer::Heard(std::size_t count) const {
  std::vector<std::uint8_t> bytes(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(count));
  const std::optional<SerialMode> other = mode_ ? port_.OtherEnd() : std::nullopt;
  if (!other || *other == *mode_) return bytes;
  Received received = Receive(bytes, *other, *mode_);
  return received.clean ? std::move(received.bytes) : std::vector<std::uint8_t>{};
}

microseconds MeterServer::UntilDue() const {
  if (due_.empty()) return kLongestWait;
  return std::clamp(std::chrono::ceil<microseconds>(due_.begin()->first - Clock::now()), microseconds(0), kLongestWait);
}

}  // namespace ostrel::sim
