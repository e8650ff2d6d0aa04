#include "host/ports/PortLine.h"

#include <algorithm>
#include <utility>

#include "host/ports/FrameCheck.h"
#include "host/ports/FrameSplit.h"
#include "platform/clock.h"

namespace ostrel::host {
namespace {

/// One answer is asked for so often at the most, and once more when no other can come in its place.
constexpr int kMostCopies = 8;

/// A request of address, code and check, which is its own answer.
constexpr std::size_t kConnectionTest = 4;

}  // namespace

PortLine::PortLine(std::unique_ptr<ByteStream> stream, LineOptions options, std::shared_ptr<OwedAnswers> owed)
    : stream_(std::move(stream)), options_(options), owed_(std::move(owed)) {}

bool PortLine::SetMode(const LineMode& mode) {
  mode_ = mode;
  modeRefused_ = !stream_->SetMode(mode);
  return !modeRefused_;
}

void PortLine::SetTimeouts(std::uint32_t answerMs, std::uint32_t quietMs) {
  answerMs_ = answerMs;
  quietMs_ = quietMs;
  owed_->SetTimes(answerMs, options_.lateGuardMs);
}

// Two characters of quiet end an answer by the protocol's own rule; a transport that hands bytes on in bursts needs more,
// for a burst of four bytes would look like a whole answer.
std::uint32_t PortLine::QuietMs() const { return std::max({quietMs_, CharactersMs(2, mode_.baud), stream_->OwnGapMs()}); }

// A line at the wrong speed counts as failed: the caller does not look at the result of SetMode.
bool PortLine::Failed() const { return modeRefused_ || stream_->Failed(); }

bool PortLine::MayAnswer(std::uint8_t address) const { return request_.empty() || request_[0] == 0 || request_[0] == address; }

// Whether anything was there to be dropped within the wait: a frame with its quiet, so that it can be taken off the account.
bool PortLine::DropInput(std::uint32_t waitMs) {
  dropped_.resize(kLongestFrame);
  dropped_.resize(Gather(dropped_.data(), dropped_.size(), waitMs));
  if (dropped_.empty()) return false;
  Account(dropped_);
  return true;
}

void PortLine::Account(const Bytes& dropped) {
  const std::vector<Bytes> frames = SplitFrames(dropped);
  if (frames.empty()) unquiet_ = true;
  for (const Bytes& frame : frames) owed_->CameStray(frame, platform::TickCount());
}

bool PortLine::WaitForQuiet() {
  if (!Guarded()) return true;
  const std::uint32_t start = platform::TickCount();
  while (DropInput(options_.lateGuardMs)) {
    if (platform::TickCount() - start >= std::max(kNeverQuietMs, 2 * options_.lateGuardMs)) return false;
  }
  return true;
}

bool PortLine::Purge() {
  awaitedEcho_.clear();
  if (Failed()) return true;
  while (DropInput(0) && !unquiet_) continue;
  if (unquiet_ && !WaitForQuiet()) return false;
  unquiet_ = false;
  return true;
}

bool PortLine::WaitForOwed(std::span<const std::uint8_t> request) {
  const std::uint32_t start = platform::TickCount();
  const std::uint32_t longest = owed_->LongestHoldMs();
  for (;;) {
    const std::uint32_t wait = owed_->PutOffMs(request, platform::TickCount());
    if (wait == 0) return true;
    const std::uint32_t waited = platform::TickCount() - start;
    if (waited >= longest) return false;
    DropInput(std::min(wait, longest - waited));
  }
}

bool PortLine::Send(const std::uint8_t* bytes, std::size_t size) {
  if (Failed() || size == 0) return false;
  if (Guarded() && !WaitForOwed({bytes, size})) return false;
  request_.assign(bytes, bytes + size);
  return Transmit();
}

bool PortLine::Transmit() {
  answer_.clear();
  if (options_.echo) awaitedEcho_ = request_;
  // Into the account before anything leaves: what there is no memory to keep account of is not sent.
  owed_->Sent(request_, platform::TickCount());
  const bool sent = stream_->Send(request_.data(), request_.size());
  owed_->HasLeft(platform::TickCount());
  return sent;
}

bool PortLine::IsAnswer(std::span<const std::uint8_t> frame) const {
  return MayAnswer(frame[0]) && HasRightCheck(frame) && !IsOwnEcho(frame);
}

std::size_t PortLine::Gather(std::uint8_t* buffer, std::size_t wanted, std::uint32_t waitMs, std::size_t likely) {
  std::size_t count = stream_->Receive(buffer, wanted, waitMs);
  while (count != 0 && count < wanted && (count != likely || !IsAnswer({buffer, count}))) {
    const std::size_t more = stream_->Receive(buffer + count, wanted - count, QuietMs());
    if (more == 0) break;
    count += more;
  }
  return count;
}

// An adapter that repeats what is sent, though nobody said so: the request is a frame with a right check, and often as long as
// its answer. A connection test is answered by itself.
bool PortLine::IsOwnEcho(std::span<const std::uint8_t> frame) const {
  return frame.size() > kConnectionTest && std::ranges::equal(frame, request_);
}

// The beginning of an answer. Frames of other meters before and behind it are dropped; where several of the meter's own came
// at once, the last is handed on and the account hears of the others.
std::size_t PortLine::OwnPart(std::uint8_t* buffer, std::size_t count) {
  if (count <= kLongestFrame && IsAnswer({buffer, count})) return count;
  const Bytes burst(buffer, buffer + count);
  const std::vector<Bytes> frames = SplitFrames(burst);
  if (frames.empty() && MayAnswer(burst[0])) return count;
  if (frames.empty()) unquiet_ = true;
  Bytes own;
  for (const Bytes& frame : frames) {
    if (IsOwnEcho(frame)) continue;
    if (!MayAnswer(frame[0])) {
      owed_->CameStray(frame, platform::TickCount());
    } else {
      if (!own.empty()) static_cast<void>(owed_->Came(own, platform::TickCount()));
      own = frame;
    }
  }
  std::ranges::copy(own, buffer);
  return own.size();
}

// A whole answer, or as much of it as came at once.
std::size_t PortLine::NextPiece(std::uint8_t* buffer, std::size_t wanted) {
  const std::uint32_t wait = Guarded() && !request_.empty() ? owed_->AnswerWaitMs(request_[0]) : answerMs_;
  const std::uint32_t start = platform::TickCount();
  const std::size_t likely = answer_.empty() ? lengths_.Of(request_) : 0;
  for (;;) {
    const std::uint32_t waited = platform::TickCount() - start;
    std::size_t count = waited <= wait ? Gather(buffer, wanted, wait - waited, likely) : 0;
    if (count == 0) {
      if (answer_.empty()) owed_->StayedSilent();
      return 0;
    }
    const std::size_t came = count;
    if (answer_.empty()) count = OwnPart(buffer, count);
    if (count == 0) continue;
    if (answer_.empty() && count == came && count != likely && count < wanted) Learn({buffer, count});
    answer_.insert(answer_.end(), buffer, buffer + count);
    return count;
  }
}

// Of an answer that came alone and that quiet ended. A status is what a meter says in place of an answer of the usual length, but
// to the test of the connection it says nothing else.
void PortLine::Learn(std::span<const std::uint8_t> answer) {
  const bool isTest = request_.size() == kConnectionTest;
  if ((isTest || answer.size() > kStatusFrame) && HasRightCheck(answer)) lengths_.Learn(request_, answer.size());
}

void PortLine::LetStrangersPass() {
  const std::uint32_t start = platform::TickCount();
  for (;;) {
    const std::uint32_t left = owed_->UntilAloneMs(platform::TickCount());
    const std::uint32_t waited = platform::TickCount() - start;
    if (left == 0 || waited >= owed_->LongestHoldMs()) return;
    DropInput(std::min(left, owed_->LongestHoldMs() - waited));
  }
}

// `count`: the piece that has just come. An answer in pieces of which some were handed out cannot be taken back; its last one
// is kept back instead, and the caller asks again.
std::size_t PortLine::AskUntilBelieved(std::uint8_t* buffer, std::size_t wanted, std::size_t count) {
  bool alone = false;
  for (int copies = 1; count != 0 && HasRightCheck(answer_); ++copies) {
    if (owed_->Came(answer_, platform::TickCount())) return count;
    if (answer_.size() != count || copies > kMostCopies) return 0;
    if (!alone && (owed_->ValuesChange(platform::TickCount()) || copies == kMostCopies)) {
      LetStrangersPass();
      alone = true;
    }
    bool silent = false;
    DropInput(QuietMs());  // more may be right behind it
    if (options_.pauseMs != 0) platform::Sleep(options_.pauseMs);
    if (!Transmit() || (options_.echo && !SwallowEcho(silent))) return 0;
    count = NextPiece(buffer, wanted);
  }
  return 0;
}

// Exactly the bytes that were sent; what follows them is the answer.
bool PortLine::SwallowEcho(bool& silent) {
  std::vector<std::uint8_t> echo(awaitedEcho_.size());
  const std::size_t count = Gather(echo.data(), echo.size(), answerMs_);
  silent = count == 0;
  const bool right = count == awaitedEcho_.size() && echo == awaitedEcho_;
  awaitedEcho_.clear();
  return right;
}

PortLine::Received PortLine::Receive(std::uint8_t* buffer, std::size_t wanted) {
  if (wanted == 0 || Failed()) {
    unquiet_ = true;  // what came was spoiled, and more of it may come
    return {.count = 0, .echoRight = true};
  }
  bool silent = false;
  const bool echoRight = awaitedEcho_.empty() || SwallowEcho(silent) || silent;
  if (!echoRight) unquiet_ = true;
  std::size_t count = echoRight && !silent ? NextPiece(buffer, wanted) : 0;
  if (count == 0 && !answer_.empty()) unquiet_ = true;
  if (Guarded() && HasRightCheck(answer_)) count = AskUntilBelieved(buffer, wanted, count);
  return {.count = count, .echoRight = echoRight};
}

}  // namespace ostrel::host
