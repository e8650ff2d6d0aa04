#include "host/session/LinkRecorder.h"

#include <algorithm>

#include "host/session/MeterFrames.h"
#include "platform/clock.h"

namespace ostrel::host {
namespace {

constexpr std::uint8_t kClockCode = 0x04;
constexpr std::size_t kClockAnswer = 11;
constexpr std::size_t kShortestRequest = 4;

std::uint32_t Median(const std::map<std::uint32_t, std::uint32_t>& turnarounds) {
  std::uint32_t all = 0;
  for (const auto& [ms, times] : turnarounds) all += times;
  std::uint32_t below = 0;
  for (const auto& [ms, times] : turnarounds) {
    below += times;
    if (below * 2 > all) return ms;
  }
  return 0;
}

}  // namespace

void LinkRecorder::Sent(std::span<const std::uint8_t> bytes) {
  const std::lock_guard lock(mutex_);
  Close();
  if (bytes.size() < kShortestRequest) return;
  const bool again = std::equal(bytes.begin(), bytes.end(), current_.request.begin(), current_.request.end());
  current_ = {.request = {bytes.begin(), bytes.end()}, .answer = {}, .turnaroundMs = {}, .clockOffsetS = {}};
  asked_ = true;
  echoLeft_ = echo_ ? bytes.size() : 0;
  sentAt_ = platform::TickCount();
  LinkCounts& counts = ledgers_[bytes[0]].counts;
  ++counts.requests;
  counts.sentBytes += bytes.size();
  if (again) ++(lost_ ? counts.retries : counts.repeats);
}

void LinkRecorder::Received(std::span<const std::uint8_t> bytes) {
  const std::lock_guard lock(mutex_);
  if (!asked_) return;
  const std::size_t echoed = std::min(echoLeft_, bytes.size());
  echoLeft_ -= echoed;
  if (echoed == bytes.size()) return;
  if (!current_.turnaroundMs) current_.turnaroundMs = platform::TickCount() - sentAt_;
  current_.answer.insert(current_.answer.end(), bytes.begin() + static_cast<std::ptrdiff_t>(echoed), bytes.end());
  if (current_.request[1] != kClockCode) return;
  const auto frame = FrameOf(current_.answer, current_.request[0]);
  if (frame.size() == kClockAnswer) current_.clockOffsetS = ClockOffset(frame);
}

void LinkRecorder::Book(const RecordedExchange& exchange, Ledger& ledger) {
  LinkCounts& counts = ledger.counts;
  counts.receivedBytes += exchange.answer.size();
  const auto frame = FrameOf(exchange.answer, exchange.request[0]);
  if (frame.empty()) {
    ++(exchange.answer.empty() ? counts.silent : counts.spoiled);
    return;
  }
  ++counts.answers;
  ++ledger.turnarounds[*exchange.turnaroundMs];
  if (exchange.clockOffsetS) counts.clockOffsetS = exchange.clockOffsetS;
}

// The caller holds the mutex.
void LinkRecorder::Close() {
  if (!asked_) return;
  asked_ = false;
  lost_ = FrameOf(current_.answer, current_.request[0]).empty();
  Book(current_, ledgers_[current_.request[0]]);
  if (keep_) kept_.push_back(current_);
}

LinkCounts LinkRecorder::Of(std::uint32_t address) const {
  const std::lock_guard lock(mutex_);
  const auto found = ledgers_.find(static_cast<std::uint8_t>(address));
  if (found == ledgers_.end()) return {};
  Ledger ledger = found->second;
  // The last exchange stands open until the next begins.
  if (asked_ && current_.request[0] == found->first) Book(current_, ledger);
  ledger.counts.medianMs = Median(ledger.turnarounds);
  ledger.counts.worstMs = ledger.turnarounds.empty() ? 0 : ledger.turnarounds.rbegin()->first;
  return ledger.counts;
}

void LinkRecorder::Keep() {
  const std::lock_guard lock(mutex_);
  keep_ = true;
}

std::vector<RecordedExchange> LinkRecorder::Kept() const {
  const std::lock_guard lock(mutex_);
  std::vector<RecordedExchange> kept = kept_;
  if (keep_ && asked_) kept.push_back(current_);
  return kept;
}

}  // namespace ostrel::host
