#include "host/ports/OwedAnswers.h"

#include <algorithm>
#include <utility>

namespace ostrel::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kStatusFrame = 4;
constexpr std::size_t kCheckBytes = 2;
/// More strangers than this are waited for: asking so often in a row takes as long.
constexpr std::size_t kMostStrangers = 3;
constexpr std::uint32_t kTimeoutsToHorizon = 5;
constexpr int kSilencesToForgetLateness = 3;
/// Frames are told apart a while after they came, so copies that were owed then are kept for it; ms.
constexpr std::int32_t kKeptForSettlingMs = 10'000;
constexpr std::uint32_t kLatenessDecay = 64;
constexpr std::uint32_t kToldStepMs = 50;

/// Test of the connection, opening of the channel, writing: all of them are answered by a status alone.
bool IsCommand(Bytes request) { return request.size() > 1 && request[1] <= 0x03; }

/// Address, code and the first parameter.
std::vector<std::uint8_t> KindOf(Bytes request) {
  const Bytes kind = request.first(std::min<std::size_t>(3, request.size()));
  return {kind.begin(), kind.end()};
}

/// 0 for what was sent only after it.
std::uint32_t Since(std::uint32_t sent, std::uint32_t tick) {
  return static_cast<std::uint32_t>(std::max(static_cast<std::int32_t>(tick - sent), 0));
}

bool Same(Bytes left, Bytes right) { return std::ranges::equal(left, right); }

/// Address 0 asks whoever hears it, so its answers come from any meter and may be meant for any.
bool MayMeet(Bytes owed, Bytes request) {
  if (owed.empty() || request.empty() || Same(owed, request)) return false;
  return owed[0] == request[0] || owed[0] == 0 || request[0] == 0;
}

bool FitsLength(std::size_t known, std::size_t length) { return known == 0 || length == 0 || known == length; }

/// Answers of zeros alone are common and alike.
bool SaysNothing(Bytes frame) {
  const Bytes data = frame.subspan(1, frame.size() - 1 - kCheckBytes);
  return std::ranges::all_of(data, [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

void OwedAnswers::SetTimes(std::uint32_t answerMs, std::uint32_t marginMs) {
  answerMs_ = answerMs;
  marginMs_ = marginMs;
}

std::uint32_t OwedAnswers::HorizonMs(const Run& run) const {
  const auto late = late_.find(run.request[0]);
  const std::uint32_t seen = late == late_.end() ? 0 : late->second.worstMs / 2 * 3;
  return std::max({kTimeoutsToHorizon * answerMs_, kLongestLatenessMs, seen}) + marginMs_;
}

std::int32_t OwedAnswers::Left(const Run& run, std::uint32_t sent, std::uint32_t tick) const {
  return static_cast<std::int32_t>(sent + HorizonMs(run) - tick);
}

void OwedAnswers::Forget(std::uint32_t tick) {
  for (Run& run : runs_)
    std::erase_if(run.sent, [&](std::uint32_t sent) { return Left(run, sent, tick) <= -kKeptForSettlingMs; });
  std::erase_if(runs_, [](const Run& run) { return run.sent.empty(); });
  std::erase_if(answered_, [&](const Answered& each) {
    return static_cast<std::int32_t>(each.tick + kLongestLatenessMs + marginMs_ - tick) <= 0;
  });
}

// A run that was answered is over, and so is one that another request follows: its copies keep their own times, and what
// comes for the new one is not taken off the old.
void OwedAnswers::Sent(Bytes request, std::uint32_t tick) {
  Forget(tick);
  if (!Same(current_.request, request)) {
    Close();
    current_ = {.request = Frame(request.begin(), request.end()), .sent = {}, .length = IsCommand(request) ? kStatusFrame : 0};
  }
  current_.sent.push_back(tick);
  ++current_.copies;
}

void OwedAnswers::Close() {
  Run over = std::exchange(current_, {});
  if (!over.sent.empty()) runs_.push_back(std::move(over));
  for (const Arrival& each : std::exchange(came_, {})) Settle(each.frame, each.tick);
}

std::size_t OwedAnswers::Strangers(std::size_t frameLength, std::uint32_t tick) const {
  std::size_t count = 0;
  for (const Run& run : runs_) {
    if (!MayMeet(run.request, current_.request) || !FitsLength(run.length, frameLength)) continue;
    count +=
        static_cast<std::size_t>(std::ranges::count_if(run.sent, [&](std::uint32_t sent) { return Left(run, sent, tick) > 0; }));
  }
  return count;
}

bool OwedAnswers::HasTwin(Bytes frame) const {
  if (!doubles_ && SaysNothing(frame)) return false;
  return std::ranges::any_of(
      answered_, [&](const Answered& each) { return Same(each.frame, frame) && !Same(each.request, current_.request); });
}

// A status alone carries no value: the worst that a stranger's can do is that the request is sent again.
bool OwedAnswers::IsBelievable(const Arrival& arrival) const {
  const Frame& frame = arrival.frame;
  if (frame.size() == kStatusFrame) return true;
  const std::size_t strangers = Strangers(frame.size(), arrival.tick);
  const std::size_t twins = HasTwin(frame) ? 1 : 0;
  const auto alike = std::ranges::count_if(came_, [&](const Arrival& each) { return each.frame == frame; });
  return static_cast<std::size_t>(alike) > (doubles_ ? 2 * strangers + twins : std::max(strangers, twins));
}

bool OwedAnswers::Came(Bytes frame, std::uint32_t tick) {
  if (current_.request.empty() || frame.size() < kStatusFrame) return false;
  Forget(tick);
  came_.push_back({Frame(frame.begin(), frame.end()), tick});
  const Arrival believed = came_.back();
  if (!IsBelievable(believed)) return false;
  Believe(believed);
  return true;
}

// What else came was a stranger's, or a second time the same. A status may be a stranger's too, so the request stays owed then.
void OwedAnswers::Believe(const Arrival& believed) {
  const bool status = believed.frame.size() == kStatusFrame;
  const bool mayBeStrangers = status && Strangers(0, believed.tick) != 0;
  std::vector<Arrival> strays;
  std::size_t own = 0;
  for (Arrival& each : std::exchange(came_, {})) {
    const bool same = each.frame == believed.frame;
    const bool countsNot = same && (mayBeStrangers || (++own > 1 && doubles_));
    if (!countsNot && (!same || !TakeOff(current_, each.tick))) strays.push_back(std::move(each));
  }
  if (!status) {
    current_.length = believed.frame.size();
    answered_.push_back({current_.request, believed.frame, believed.tick});
  }
  late_[current_.request[0]].silences = 0;
  Close();
  for (const Arrival& each : strays) Settle(each.frame, each.tick);
}

void OwedAnswers::CameStray(Bytes frame, std::uint32_t tick) {
  Forget(tick);
  Settle(frame, tick);
}

bool OwedAnswers::CanAnswer(const Run& run, Bytes frame, std::uint32_t tick) const {
  if (run.strays >= run.sent.size() || (run.request[0] != frame[0] && run.request[0] != 0)) return false;
  if (Left(run, run.sent.back(), tick) <= 0) return false;
  return FitsLength(run.length, frame.size()) || frame.size() == kStatusFrame;
}

// Whose it was is a guess, the latest request's that it can answer; so the copies stay until their time is over, and the guess
// serves to tell how late the meter is. One that answers nothing was sent twice.
void OwedAnswers::Settle(Bytes frame, std::uint32_t tick) {
  if (frame.size() > kStatusFrame) answered_.push_back({{}, Frame(frame.begin(), frame.end()), tick});
  const auto owed = std::find_if(runs_.rbegin(), runs_.rend(), [&](const Run& run) { return CanAnswer(run, frame, tick); });
  if (owed != runs_.rend()) {
    Guess(*owed, tick);
  } else if (CanAnswer(current_, frame, tick)) {
    Guess(current_, tick);
  } else {
    doubles_ = true;
  }
}

void OwedAnswers::Guess(Run& run, std::uint32_t tick) {
  run.worstMs = std::max(run.worstMs, Since(run.sent[run.strays], tick));
  const bool newestWasLate = Since(run.sent.back(), tick) > answerMs_;
  if (++run.strays >= run.sent.size() || newestWasLate) NoteLateness(run);
}

// The oldest copy goes, so that what is left is held the longest.
bool OwedAnswers::TakeOff(Run& run, std::uint32_t tick) {
  if (run.sent.empty()) return false;
  run.worstMs = std::max(run.worstMs, Since(run.sent.front(), tick));
  const bool newestWasLate = Since(run.sent.back(), tick) > answerMs_;
  run.sent.erase(run.sent.begin());
  run.strays = std::min(run.strays, run.sent.size());
  if (run.sent.empty() && run.copies == 1) late_[run.request[0]].usualMs = std::max<std::uint32_t>(run.worstMs, 1);
  // With all copies answered none was lost, so the first answer was the first copy's.
  if (run.sent.empty() || newestWasLate) NoteLateness(run);
  return true;
}

void OwedAnswers::NoteLateness(const Run& run) {
  Lateness& late = late_[run.request[0]];
  if (run.worstMs <= answerMs_) {
    late.worstMs -= late.worstMs / kLatenessDecay;
    if (late.worstMs <= answerMs_) late.worstMs = 0;
    return;
  }
  late.worstMs = std::max(late.worstMs, run.worstMs);
  if (run.worstMs <= late.toldMs / 2 * 3) return;
  late.toldMs = run.worstMs;
  if (listener_) listener_(run.request[0], (run.worstMs + kToldStepMs / 2) / kToldStepMs * kToldStepMs);
}

void OwedAnswers::StayedSilent() {
  if (current_.request.empty()) return;
  Lateness& late = late_[current_.request[0]];
  if (late.worstMs != 0 && ++late.silences >= kSilencesToForgetLateness) {
    late.worstMs = 0;
    late.silences = 0;
  }
}

std::uint32_t OwedAnswers::AnswerWaitMs(std::uint8_t address) const {
  const auto late = late_.find(address);
  if (late == late_.end() || late->second.worstMs == 0) return answerMs_;
  return std::max(answerMs_, std::min(late->second.worstMs / 2 * 3, kLongestAnswerWaitMs));
}

// Twice as long as its answers take, so that a second copy that was sent without need is met and not left behind.
std::uint32_t OwedAnswers::SoonMs(std::uint8_t address) const {
  const auto late = late_.find(address);
  const std::uint32_t most = AnswerWaitMs(address);
  return late == late_.end() || late->second.usualMs == 0 ? most : std::min(most, 2 * late->second.usualMs);
}

std::uint32_t OwedAnswers::PutOffMs(Bytes request, std::uint32_t tick) {
  Forget(tick);
  if (request.empty() || Same(current_.request, request)) return 0;
  std::int32_t putOff = 0;
  std::vector<std::int32_t> left;
  const auto changing = changing_.find(KindOf(request));
  const bool changes = changing != changing_.end();
  const auto look = [&](const Run& run) {
    if (!MayMeet(run.request, request)) return;
    for (const std::uint32_t sent : run.sent) {
      if (Left(run, sent, tick) <= 0) continue;
      putOff = std::max(putOff, static_cast<std::int32_t>(sent + SoonMs(run.request[0]) - tick));
      left.push_back(Left(run, sent, tick));
      const bool alone = IsCommand(request) ? IsCommand(run.request) : changes && FitsLength(run.length, changing->second);
      if (alone) putOff = std::max(putOff, left.back());
    }
  };
  for (const Run& run : runs_) look(run);
  look(current_);
  std::ranges::sort(left, std::greater());
  if (left.size() > kMostStrangers) putOff = std::max(putOff, left[kMostStrangers]);
  return static_cast<std::uint32_t>(std::max(putOff, 0));
}

void OwedAnswers::ValuesChange() {
  if (!came_.empty()) changing_[KindOf(current_.request)] = came_.back().frame.size();
}

std::uint32_t OwedAnswers::UntilAloneMs(std::uint32_t tick) {
  Forget(tick);
  std::int32_t until = 0;
  for (const Run& run : runs_) {
    if (!MayMeet(run.request, current_.request)) continue;
    for (const std::uint32_t sent : run.sent) until = std::max(until, Left(run, sent, tick));
  }
  return static_cast<std::uint32_t>(until);
}

}  // namespace ostrel::host
