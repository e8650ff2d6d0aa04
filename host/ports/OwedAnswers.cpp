#include "host/ports/OwedAnswers.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace ostrel::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

/// More strangers than this are waited for: each of them takes two more copies, of which the next may be lost.
constexpr std::size_t kMostStrangers = 1;
constexpr int kAlikeToStandStill = 3;
constexpr std::uint32_t kStandsStillMs = 300'000;
/// A meter from which something came that answered nothing is watched more closely for so long.
constexpr std::uint32_t kTroubledMs = 600'000;
/// The status of a meter that wants its password first.
constexpr std::uint8_t kChannelClosed = 5;
/// An export asks thousands of requests once.
constexpr std::size_t kMostKnown = 1000;

std::uint32_t Until(std::uint32_t later, std::uint32_t tick) {
  return static_cast<std::uint32_t>(std::max(static_cast<std::int32_t>(later - tick), 0));
}

}  // namespace

void OwedAnswers::SetTimes(std::uint32_t answerMs, std::uint32_t marginMs) {
  lateness_.SetAnswerMs(answerMs);
  copies_.SetMargin(marginMs);
  marginMs_ = marginMs;
}

void OwedAnswers::Forget(std::uint32_t tick) {
  copies_.Forget(tick);
  const auto isLongAgo = [&](const Arrival& each) { return Until(each.tick + kLongestLatenessMs + marginMs_, tick) == 0; };
  std::erase_if(answered_, isLongAgo);
  std::erase_if(unbelieved_, isLongAgo);
  std::erase_if(strays_, [&](const auto& stray) { return Until(stray.second + kTroubledMs, tick) == 0; });
  if (settled_ && Until(*settled_, tick) == 0) settled_.reset();
  if (quiet_ && Until(*quiet_, tick) == 0) quiet_.reset();
}

void OwedAnswers::Sent(Bytes request, std::uint32_t tick) {
  Forget(tick);
  if (!std::ranges::equal(copies_.Last(), request)) Close();
  copies_.Sent(request, tick);
}

void OwedAnswers::Close() {
  copies_.Close();
  for (const Arrival& each : std::exchange(came_, {})) {
    unbelieved_.push_back(each);
    Stray(each);
  }
}

std::size_t OwedAnswers::Twins(Bytes frame) const {
  if (SendsOnce(frame[0])) return 0;
  std::size_t times = 0;
  for (const Arrival& each : answered_) {
    if (std::ranges::equal(each.frame, frame) && each.request != copies_.Last()) times = std::max(times, each.times);
  }
  return times;
}

std::size_t OwedAnswers::MostStrange(const Arrival& arrival) const {
  return 2 * copies_.Strangers(arrival.frame.size(), arrival.tick).size() + Twins(arrival.frame);
}

std::size_t OwedAnswers::Alike(Bytes frame) const {
  const auto same = [&](const Arrival& each) { return each.request == copies_.Last() && std::ranges::equal(each.frame, frame); };
  return static_cast<std::size_t>(std::ranges::count_if(came_, same) + std::ranges::count_if(unbelieved_, same));
}

// A status alone carries no value: the worst that a stranger's can do to a reading is that it is sent again.
bool OwedAnswers::IsBelievable(const Arrival& arrival) const {
  return arrival.frame.size() == kStatusFrame || StandsStill(arrival) || Alike(arrival.frame) > MostStrange(arrival);
}

// The request was answered so each time lately, and no other was: should this be a stranger's all the same, it still is what
// the meter sent for the request the last time.
bool OwedAnswers::StandsStill(const Arrival& arrival) const {
  const auto known = known_.find(arrival.request);
  if (known == known_.end() || known->second.alike < kAlikeToStandStill || known->second.frame != arrival.frame) return false;
  if (arrival.tick - known->second.tick > kStandsStillMs || Twins(arrival.frame) != 0) return false;
  return std::ranges::none_of(copies_.Strangers(arrival.frame.size(), arrival.tick), [&](const Frame& stranger) {
    const auto other = known_.find(stranger);
    return other != known_.end() && other->second.frame == arrival.frame;
  });
}

void OwedAnswers::Remember(const Arrival& believed, std::size_t times) {
  if (known_.size() >= kMostKnown) known_.clear();
  Known& known = known_[believed.request];
  known.alike = known.frame == believed.frame ? known.alike + 1 : 1;
  known.frame = believed.frame;
  known.tick = believed.tick;
  copies_.SetLength(believed.frame.size());
  answered_.push_back({believed.request, believed.frame, believed.tick, times});
  if (known.alike >= kAlikeToStandStill) known.changes = false;
}

bool OwedAnswers::Came(Bytes frame, std::uint32_t tick) {
  if (copies_.Last().empty() || frame.size() < kStatusFrame) return false;
  Forget(tick);
  // No reading is answered by "done": it is another command's, come a second time, and this one's own answer is still owed.
  if (!IsCommand(copies_.Last()) && frame.size() == kStatusFrame && frame[1] == 0) {
    CameStray(frame, tick);
    return false;
  }
  copies_.Came(tick);
  came_.push_back({copies_.Last(), Frame(frame.begin(), frame.end()), tick});
  const Arrival believed = came_.back();
  if (!IsBelievable(believed)) return false;
  Believe(believed);
  return true;
}

// What else came was a stranger's. A status may be a stranger's too, so the request stays owed then. Of several that are alike
// some may have been doubles, so that as many of its own are still to come: the next request waits until these are in.
void OwedAnswers::Believe(const Arrival& believed) {
  const bool status = believed.frame.size() == kStatusFrame;
  const bool alone = copies_.Strangers(status ? 0 : believed.frame.size(), believed.tick).empty();
  const bool closed = status && believed.frame[1] == kChannelClosed;
  const bool troubled = strays_.contains(believed.frame[0]);
  // Each copy may be answered twice. Where nothing of the kind was seen lately, that is reckoned with for one copy alone.
  const std::size_t times = alone && !troubled ? 1 : 2 * copies_.Copies() - Alike(believed.frame);
  if (!alone && came_.size() > 1) settled_ = believed.tick + lateness_.SoonMs(believed.request[0]) / 2;
  const bool moreThanAsked = came_.size() > copies_.Copies();
  std::vector<Arrival> strays;
  std::size_t taken = 0;
  const std::size_t mostTaken = troubled ? (Alike(believed.frame) + 1) / 2 : came_.size();
  for (Arrival& each : std::exchange(came_, {})) {
    if (closed && alone && !troubled && each.frame != believed.frame) {
      // One copy was answered by this, though it was not believed, and the next by a meter that closes its channel at once.
      copies_.Answered(each.tick);
      unbelieved_.push_back(std::move(each));
    } else if ((status && !alone) || each.frame != believed.frame) {
      strays.push_back(std::move(each));
    } else if (++taken <= mostTaken) {
      copies_.Answered(each.tick);
    }
  }
  lateness_.Answered(believed.request[0]);
  Calm& calm = calm_[believed.frame[0]];
  if (moreThanAsked) calm.sinceStray = 0;
  ++calm.sinceStray;
  ++calm.sinceSilence;
  if (status) {
    quiet_ = believed.tick + marginMs_;
  } else {
    Remember(believed, times);
  }
  Close();
  for (const Arrival& each : strays) {
    if (status) unbelieved_.push_back(each);
    Stray(each);
  }
}

void OwedAnswers::CameStray(Bytes frame, std::uint32_t tick) {
  Forget(tick);
  strays_[frame[0]] = tick;
  calm_[frame[0]].sinceStray = 0;
  Stray({{}, Frame(frame.begin(), frame.end()), tick});
}

void OwedAnswers::Stray(const Arrival& arrival) {
  const bool cameBefore =
      std::ranges::any_of(answered_, [&](const Arrival& each) { return !each.request.empty() && each.frame == arrival.frame; });
  if (cameBefore) calm_[arrival.frame[0]].sinceStray = 0;
  if (arrival.frame.size() > kStatusFrame) {
    answered_.push_back({{}, arrival.frame, arrival.tick});
  } else {
    quiet_ = arrival.tick + marginMs_;
  }
  copies_.CameStray(arrival.frame, arrival.tick);
}

void OwedAnswers::StayedSilent() {
  if (copies_.Last().empty()) return;
  lateness_.StayedSilent(copies_.Last()[0]);
  calm_[copies_.Last()[0]].sinceSilence = 0;
}

std::size_t OwedAnswers::MostStrangersFor(Bytes request) const {
  if (IsCommand(request)) return 0;
  const auto known = known_.find(Frame(request.begin(), request.end()));
  if (known == known_.end()) return kMostStrangers;
  if (known->second.changes) return 0;
  return known->second.alike < kAlikeToStandStill ? kMostStrangers : SIZE_MAX;
}

std::size_t OwedAnswers::KnownLength(Bytes request) const {
  const auto known = known_.find(Frame(request.begin(), request.end()));
  return known == known_.end() ? 0 : known->second.frame.size();
}

std::uint32_t OwedAnswers::PutOffMs(Bytes request, std::uint32_t tick) {
  Forget(tick);
  if (request.empty() || std::ranges::equal(copies_.Last(), request)) return 0;
  std::uint32_t putOff = settled_ ? Until(*settled_, tick) : 0;
  // What a doubled status says is said of the command before.
  if (quiet_ && IsCommand(request) && !IsCalm(request[0])) putOff = std::max(putOff, Until(*quiet_, tick));
  const std::size_t length = KnownLength(request);
  std::vector<std::uint32_t> left;
  for (const OwedCopies::Owed& each : copies_.InTheWayOf(request, tick)) {
    putOff = std::max(putOff, each.soonMs);
    if (each.Fits(length)) left.push_back(each.leftMs);
  }
  std::ranges::sort(left, std::greater());
  const std::size_t most = MostStrangersFor(request);
  return left.size() > most ? std::max(putOff, left[most]) : putOff;
}

std::uint32_t OwedAnswers::LongestHoldMs() const {
  constexpr std::uint32_t kLeast = 3000;
  constexpr std::uint32_t kMost = 15'000;
  return std::clamp(copies_.UsualHorizonMs(), kLeast, kMost);
}

bool OwedAnswers::ValuesChange(std::uint32_t tick) {
  if (came_.empty()) return false;
  std::size_t mostAlike = 0;
  for (const Arrival& each : came_) mostAlike = std::max(mostAlike, Alike(each.frame));
  if (came_.size() - mostAlike <= MostStrange({copies_.Last(), came_.back().frame, tick})) return false;
  Known& known = known_[copies_.Last()];
  if (known.frame.empty()) known.frame = came_.back().frame;
  known.changes = true;
  return true;
}

std::uint32_t OwedAnswers::UntilAloneMs(std::uint32_t tick) {
  Forget(tick);
  std::uint32_t until = 0;
  for (const OwedCopies::Owed& each : copies_.InTheWayOf(copies_.Last(), tick)) until = std::max(until, each.leftMs);
  for (const Arrival& each : answered_) {
    if (each.times > 1 && Alike(each.frame) != 0)
      until = std::max(until, Until(each.tick + kLongestLatenessMs + marginMs_, tick));
  }
  return until;
}

}  // namespace ostrel::host
