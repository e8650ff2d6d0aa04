#include "host/ports/PortLine.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/ports/FrameCheck.h"
#include "platform/clock.h"

namespace ostrel::host {
namespace {

// At most this much is thrown away at one go: what a driver keeps.
constexpr std::size_t kDropLimit = 4096;

}  // namespace

PortLine::PortLine(std::unique_ptr<ByteStream> stream, LineOptions options) : stream_(std::move(stream)), options_(options) {}

bool PortLine::SetMode(const LineMode& mode) {
  mode_ = mode;
  modeRefused_ = !stream_->SetMode(mode);
  return !modeRefused_;
}

void PortLine::SetTimeouts(std::uint32_t answerMs, std::uint32_t quietMs) {
  answerMs_ = answerMs;
  quietMs_ = quietMs;
}

// Two characters of quiet end an answer by the protocol's own rule; a transport that hands bytes on in bursts needs more,
// for a burst of four bytes would look like a whole answer.
std::uint32_t PortLine::QuietMs() const { return std::max({quietMs_, CharactersMs(2, mode_.baud), stream_->OwnGapMs()}); }

// A line at the wrong speed counts as failed: the caller does not look at the result of SetMode.
bool PortLine::Failed() const { return modeRefused_ || stream_->Failed(); }

// Whether anything was there to be dropped within the wait.
bool PortLine::DropInput(std::uint32_t waitMs) {
  std::array<std::uint8_t, 256> scratch;
  std::size_t dropped = stream_->Receive(scratch.data(), scratch.size(), waitMs);
  if (dropped == 0) return false;
  while (dropped < kDropLimit) {
    const std::size_t more = stream_->Receive(scratch.data(), scratch.size(), 0);
    if (more == 0) break;
    dropped += more;
  }
  return true;
}

bool PortLine::WaitForQuiet() {
  if (options_.lateGuardMs == 0) return true;
  const std::uint32_t start = platform::TickCount();
  while (DropInput(options_.lateGuardMs)) {
    if (platform::TickCount() - start >= std::max(kNeverQuietMs, 2 * options_.lateGuardMs)) return false;
  }
  return true;
}

bool PortLine::Purge() {
  awaitedEcho_.clear();
  if (Failed()) return true;
  if (DropInput(0)) lateAnswerPossible_ = true;
  waited_ = lateAnswerPossible_;
  if (waited_ && !WaitForQuiet()) return false;
  lateAnswerPossible_ = false;
  return true;
}

bool PortLine::Send(const std::uint8_t* bytes, std::size_t size) {
  if (Failed()) return false;
  // Where the first copy got no answer, the meter may yet answer it, and then the second one, whatever is asked after it.
  const bool again = !HasRightCheck(answer_) && std::equal(lastRequest_.begin(), lastRequest_.end(), bytes, bytes + size);
  if (again && !waited_ && !WaitForQuiet()) return false;
  lateAnswerPossible_ = again;
  lastRequest_.assign(bytes, bytes + size);
  answer_.clear();
  if (options_.echo) awaitedEcho_ = lastRequest_;
  return stream_->Send(bytes, size);
}

std::size_t PortLine::Gather(std::uint8_t* buffer, std::size_t wanted) {
  std::size_t count = stream_->Receive(buffer, wanted, answerMs_);
  while (count != 0 && count < wanted) {
    const std::size_t more = stream_->Receive(buffer + count, wanted - count, QuietMs());
    if (more == 0) break;
    count += more;
  }
  return count;
}

// Exactly the bytes that were sent; what follows them is the answer.
bool PortLine::SwallowEcho(bool& silent) {
  std::vector<std::uint8_t> echo(awaitedEcho_.size());
  const std::size_t count = Gather(echo.data(), echo.size());
  silent = count == 0;
  const bool right = count == awaitedEcho_.size() && echo == awaitedEcho_;
  awaitedEcho_.clear();
  return right;
}

PortLine::Received PortLine::Receive(std::uint8_t* buffer, std::size_t wanted) {
  std::size_t count = 0;
  bool echoRight = true;
  if (wanted != 0 && !Failed()) {
    bool silent = false;
    if (!awaitedEcho_.empty()) echoRight = SwallowEcho(silent) || silent;
    if (echoRight && !silent) count = Gather(buffer, wanted);
  }
  if (count == 0) lateAnswerPossible_ = true;
  answer_.insert(answer_.end(), buffer, buffer + count);
  return {.count = count, .echoRight = echoRight};
}

}  // namespace ostrel::host
