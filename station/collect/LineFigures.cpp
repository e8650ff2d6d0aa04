#include "station/collect/LineFigures.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "host/ports/FrameCheck.h"
#include "host/session/HistoryInterval.h"
#include "platform/clock.h"

namespace ostrel::station {
namespace {

/// Address, code 4, parameter 0, check: asks for the meter's clock. The answer is the address, second, minute, hour, day of
/// the week, day, month and year in packed BCD, the season, and the check.
constexpr std::size_t kClockRequestBytes = 5;
constexpr std::size_t kClockAnswerBytes = 11;

std::int64_t Bcd(std::uint8_t byte) { return (byte >> 4) * 10 + (byte & 0x0F); }

std::int64_t WallSeconds(std::span<const std::uint8_t> answer) {
  std::tm fields{};
  fields.tm_sec = static_cast<int>(Bcd(answer[1]));
  fields.tm_min = static_cast<int>(Bcd(answer[2]));
  fields.tm_hour = static_cast<int>(Bcd(answer[3]));
  fields.tm_mday = static_cast<int>(Bcd(answer[5]));
  fields.tm_mon = static_cast<int>(Bcd(answer[6])) - 1;
  fields.tm_year = static_cast<int>(Bcd(answer[7])) + 100;
  return timegm(&fields);
}

class WatchedStream final : public host::ByteStream {
 public:
  WatchedStream(std::unique_ptr<host::ByteStream> stream, std::shared_ptr<LineFigures> figures)
      : stream_(std::move(stream)), figures_(std::move(figures)) {}

  bool SetMode(const host::LineMode& mode) override { return stream_->SetMode(mode); }
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override {
    const std::size_t count = stream_->Receive(buffer, size, waitMs);
    figures_->Received({buffer, count});
    return count;
  }
  bool Send(const std::uint8_t* bytes, std::size_t size) override {
    const bool sent = stream_->Send(bytes, size);
    figures_->Sent({bytes, size});
    return sent;
  }
  bool Failed() const override { return stream_->Failed(); }
  std::uint32_t OwnGapMs() const override { return stream_->OwnGapMs(); }

 private:
  std::unique_ptr<host::ByteStream> stream_;
  std::shared_ptr<LineFigures> figures_;
};

}  // namespace

std::unique_ptr<host::ByteStream> Watched(std::unique_ptr<host::ByteStream> stream, std::shared_ptr<LineFigures> figures) {
  return std::make_unique<WatchedStream>(std::move(stream), std::move(figures));
}

void LineFigures::Sent(std::span<const std::uint8_t> request) {
  const std::lock_guard lock(mutex_);
  Settle();
  lastActivity_ = sentAt_ = platform::TickCount();
  if (request.empty()) return;
  request_.assign(request.begin(), request.end());
  answer_.clear();
  open_ = true;
  begun_ = false;
  ++meters_[request.front()].requests;
}

// What the last request brought is known when the next one leaves, or when its answer is whole.
void LineFigures::Settle() {
  if (!open_) return;
  open_ = false;
  MeterFigures& meter = meters_[request_.front()];
  if (answer_.empty()) {
    ++meter.silent;
  } else if (host::HasRightCheck(answer_)) {
    ++meter.answers;
    ReadClock(meter, answer_);
  } else {
    ++meter.spoiled;
  }
}

void LineFigures::Received(std::span<const std::uint8_t> bytes) {
  const std::lock_guard lock(mutex_);
  lastActivity_ = platform::TickCount();
  if (!open_ || bytes.empty()) return;
  MeterFigures& meter = meters_[request_.front()];
  if (!std::exchange(begun_, true)) {
    const std::uint32_t took = lastActivity_ - sentAt_;
    const auto step = std::lower_bound(kTurnaroundMs.begin(), kTurnaroundMs.end(), took);
    ++meter.turnaround[static_cast<std::size_t>(step - kTurnaroundMs.begin())];
    meter.turnaroundSumMs += took;
  }
  constexpr std::size_t kMostBytes = 1024;
  if (answer_.size() < kMostBytes) answer_.insert(answer_.end(), bytes.begin(), bytes.end());
  if (host::HasRightCheck(answer_)) Settle();
}

void LineFigures::ReadClock(MeterFigures& meter, std::span<const std::uint8_t> answer) const {
  const bool asked = request_.size() == kClockRequestBytes && request_[1] == 4 && request_[2] == 0;
  if (asked && answer.size() == kClockAnswerBytes) meter.clockOffsetSeconds = WallSeconds(answer) - host::ComputersWallTime();
}

MeterFigures LineFigures::Of(std::uint32_t address) const {
  const std::lock_guard lock(mutex_);
  const auto found = meters_.find(static_cast<std::uint8_t>(address));
  return found == meters_.end() ? MeterFigures{} : found->second;
}

std::uint32_t LineFigures::LastActivity() const {
  const std::lock_guard lock(mutex_);
  return lastActivity_;
}

}  // namespace ostrel::station
