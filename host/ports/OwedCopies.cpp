#include "host/ports/OwedCopies.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ostrel::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint32_t kTimeoutsToHorizon = 5;
/// Frames are told apart a while after they came, so copies that were owed then are kept for it; ms.
constexpr std::int32_t kKeptForSettlingMs = 10'000;

/// 0 for what was sent only after it.
std::uint32_t Since(std::uint32_t sent, std::uint32_t tick) {
  return static_cast<std::uint32_t>(std::max(static_cast<std::int32_t>(tick - sent), 0));
}

/// Address 0 asks whoever hears it, so its answers come from any meter and may be meant for any.
bool MayMeet(Bytes owed, Bytes request) {
  if (owed.empty() || request.empty() || std::ranges::equal(owed, request)) return false;
  return owed[0] == request[0] || owed[0] == 0 || request[0] == 0;
}

bool FitsLength(std::size_t known, std::size_t length) { return known == 0 || length == 0 || known == length; }

}  // namespace

bool IsCommand(Bytes request) { return request.size() > 1 && request[1] <= 0x03; }

std::uint32_t OwedCopies::UsualHorizonMs() const {
  return std::max(kTimeoutsToHorizon * lateness_.AnswerMs(), kLongestLatenessMs) + marginMs_;
}

std::uint32_t OwedCopies::HorizonMs(const Run& run) const {
  return std::max(UsualHorizonMs(), lateness_.WorstMs(run.request[0]) / 2 * 3 + marginMs_);
}

std::int32_t OwedCopies::Left(const Run& run, std::uint32_t sent, std::uint32_t tick) const {
  return static_cast<std::int32_t>(sent + HorizonMs(run) - tick);
}

void OwedCopies::Forget(std::uint32_t tick) {
  for (Run& run : runs_)
    std::erase_if(run.sent, [&](std::uint32_t sent) { return Left(run, sent, tick) <= -kKeptForSettlingMs; });
  std::erase_if(runs_, [](const Run& run) { return run.sent.empty(); });
}

// A run that was answered is over, and so is one that another request follows. What is still owed to an earlier run of the
// same request is taken over, for its answers are this one's as well.
void OwedCopies::Begin(Bytes request, std::uint32_t tick) {
  last_ = {.request = Frame(request.begin(), request.end()), .sent = {}, .length = IsCommand(request) ? kStatusFrame : 0};
  for (Run& run : runs_) {
    if (!std::ranges::equal(run.request, request)) continue;
    std::ranges::copy_if(run.sent, std::back_inserter(last_.sent), [&](std::uint32_t sent) { return Left(run, sent, tick) > 0; });
    last_.length = run.length;
    run.sent.clear();
  }
  last_.copies = static_cast<std::uint32_t>(last_.sent.size());
}

void OwedCopies::Sent(Bytes request, std::uint32_t tick) {
  if (last_.request.empty()) Begin(request, tick);
  last_.sent.push_back(tick);
  ++last_.copies;
}

// Nothing of it is lost where memory is too short.
void OwedCopies::Close() {
  if (!last_.sent.empty()) runs_.push_back(std::move(last_));
  last_ = {};
}

void OwedCopies::Came(std::uint32_t tick) {
  if (last_.copies == 1) lateness_.CameAfter(last_.request[0], Since(last_.sent.front(), tick));
}

// The oldest copy goes, so that what is left is held the longest.
void OwedCopies::Answered(std::uint32_t tick) {
  if (last_.sent.empty()) return;
  last_.worstMs = std::max(last_.worstMs, Since(last_.sent.front(), tick));
  const bool newestWasLate = Since(last_.sent.back(), tick) > lateness_.AnswerMs();
  last_.sent.erase(last_.sent.begin());
  if (last_.sent.empty() && last_.copies == 1) return lateness_.Measured(last_.request[0], last_.worstMs);
  // With all copies answered none was lost, so the first answer was the first copy's.
  if (last_.sent.empty() || newestWasLate) NoteLateness(last_);
}

bool OwedCopies::CanAnswer(const Run& run, Bytes frame, std::uint32_t tick) const {
  if (run.strays >= run.sent.size() || (run.request[0] != frame[0] && run.request[0] != 0)) return false;
  if (Left(run, run.sent.back(), tick) <= 0) return false;
  return FitsLength(run.length, frame.size()) || frame.size() == kStatusFrame;
}

// Whose it was is a guess, the latest request's that it can answer; so the copies stay until their time is over, and the guess
// serves to tell how late the meter is. One that answers nothing was sent twice.
void OwedCopies::CameStray(Bytes frame, std::uint32_t tick) {
  const auto owed = std::find_if(runs_.rbegin(), runs_.rend(), [&](const Run& run) { return CanAnswer(run, frame, tick); });
  if (owed != runs_.rend()) {
    Guess(*owed, tick);
  } else if (CanAnswer(last_, frame, tick)) {
    Guess(last_, tick);
  }
}

void OwedCopies::Guess(Run& run, std::uint32_t tick) {
  run.worstMs = std::max(run.worstMs, Since(run.sent[run.strays], tick));
  const bool newestWasLate = Since(run.sent.back(), tick) > lateness_.AnswerMs();
  if (++run.strays >= run.sent.size() || newestWasLate) NoteLateness(run);
}

void OwedCopies::NoteLateness(const Run& run) { lateness_.Suspected(run.request[0], run.worstMs); }

std::vector<OwedCopies::Frame> OwedCopies::Strangers(std::size_t length, std::uint32_t tick) const {
  std::vector<Frame> strangers;
  for (const Run& run : runs_) {
    if (!MayMeet(run.request, last_.request) || !FitsLength(run.length, length)) continue;
    const auto alive = std::ranges::count_if(run.sent, [&](std::uint32_t sent) { return Left(run, sent, tick) > 0; });
    strangers.insert(strangers.end(), static_cast<std::size_t>(alive), run.request);
  }
  return strangers;
}

std::vector<OwedCopies::Owed> OwedCopies::InTheWayOf(Bytes request, std::uint32_t tick) const {
  std::vector<Owed> owed;
  const auto look = [&](const Run& run) {
    if (!MayMeet(run.request, request)) return;
    const std::uint32_t soon = lateness_.SoonMs(run.request[0]);
    for (const std::uint32_t sent : run.sent) {
      const std::int32_t left = Left(run, sent, tick);
      const std::uint32_t since = Since(sent, tick);
      if (left > 0) owed.push_back({static_cast<std::uint32_t>(left), soon - std::min(soon, since), run.length});
    }
  };
  for (const Run& run : runs_) look(run);
  look(last_);
  return owed;
}

}  // namespace ostrel::host
