#include "host/session/WriteFrames.h"

namespace ostrel::host {
namespace {

constexpr std::uint8_t kWriteCode = 3;
constexpr std::size_t kShortestCommand = 5;  // address, code, parameter, check
constexpr std::size_t kStatusAnswer = 4;

enum Status : std::uint8_t { kChannelClosed = 5, kBusy = 6, kRefused = 0x0F };

// After these the plug-in sends the command again.
bool IsFinal(const std::optional<std::uint8_t>& status) {
  return status && *status != kChannelClosed && *status != kBusy && *status != kRefused;
}

}  // namespace

void WriteFrames::Observe(std::span<const std::uint8_t> request, std::span<const std::uint8_t> answer) {
  if (request.size() < kShortestCommand || request[1] != kWriteCode) return;
  Seen seen{.address = request[0], .parameter = request[2], .status = std::nullopt};
  if (answer.size() == kStatusAnswer) seen.status = answer[1];
  const std::lock_guard lock(mutex_);
  if (watching_) seen_.push_back(seen);
}

void WriteFrames::Begin() {
  const std::lock_guard lock(mutex_);
  watching_ = true;
  seen_.clear();
}

void WriteFrames::End() {
  const std::lock_guard lock(mutex_);
  watching_ = false;
}

WriteAnswer WriteFrames::Outcome(std::uint8_t address, std::uint8_t parameter) const {
  const std::lock_guard lock(mutex_);
  WriteAnswer outcome;
  for (const Seen& seen : seen_) {
    if (seen.address != address || seen.parameter != parameter) continue;
    outcome.sent = true;
    outcome.status = seen.status;
    if (IsFinal(seen.status)) break;
  }
  return outcome;
}

}  // namespace ostrel::host
