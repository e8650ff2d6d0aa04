#include "host/ports/SimulatedStream.h"

#include <algorithm>
#include <span>
#include <utility>

#include "platform/clock.h"

namespace ostrel::host {
namespace {

constexpr std::int64_t kUsPerMs = 1000;

// Right across the wrap of the tick count.
std::int32_t TicksUntil(std::uint32_t tick) { return static_cast<std::int32_t>(tick - platform::TickCount()); }

}  // namespace

SimulatedStream::SimulatedStream(std::shared_ptr<sim::Line> line) : line_(std::move(line)) {}

bool SimulatedStream::Send(const std::uint8_t* bytes, std::size_t size) {
  const std::int64_t now = platform::UtcMilliseconds();
  const std::uint32_t tick = platform::TickCount();
  // Kept by tick count: the wall clock may be set while an answer is on its way.
  for (sim::Delivery& delivery : line_->Transact(std::span(bytes, size), now)) {
    const auto afterMs = static_cast<std::uint32_t>((delivery.afterUs + kUsPerMs - 1) / kUsPerMs);
    arrivals_.push_back({tick + afterMs, std::move(delivery.bytes)});
  }
  // A late answer to an earlier request comes after what is answered meanwhile.
  std::stable_sort(arrivals_.begin(), arrivals_.end(),
                   [](const Arrival& left, const Arrival& right) { return TicksUntil(left.tick) < TicksUntil(right.tick); });
  failed_ = failed_ || line_->IsDown(now);
  return !failed_;
}

std::size_t SimulatedStream::TakeDue(std::uint8_t* buffer, std::size_t size) {
  std::size_t count = 0;
  while (count < size && !arrivals_.empty() && TicksUntil(arrivals_.front().tick) <= 0) {
    std::vector<std::uint8_t>& bytes = arrivals_.front().bytes;
    const std::size_t taken = std::min(size - count, bytes.size());
    std::copy_n(bytes.begin(), taken, buffer + count);
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(taken));
    count += taken;
    if (bytes.empty()) arrivals_.pop_front();
  }
  return count;
}

std::size_t SimulatedStream::Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) {
  const std::uint32_t deadline = platform::TickCount() + waitMs;
  for (;;) {
    if (failed_) return 0;
    const std::size_t count = TakeDue(buffer, size);
    const std::int32_t left = TicksUntil(deadline);
    if (count != 0 || left <= 0) return count;
    const std::int32_t next = arrivals_.empty() ? left : std::min(left, TicksUntil(arrivals_.front().tick));
    platform::Sleep(static_cast<std::uint32_t>(std::max(next, 1)));
    failed_ = line_->IsDown(platform::UtcMilliseconds());
  }
}

}  // namespace ostrel::host
