// Which answers may be believed. Answers carry no number, so one that comes after its request was given up looks like the
// answer to the next request: a wrong value with good quality. OwedCopies says how many strangers may come in the place of
// an answer; a line may also bring an answer twice.
//
// An answer is believed when it has come once more often, byte by byte the same, than strangers and their doubles may still
// come: at least one of them then is the request's own. On a line where nothing is owed that is the first one, unless the
// same bytes came just before for another request. It holds whether the line keeps the order of its answers or not, and needs
// no wait. Where a copy was answered so late that no wait would have taken it for possible, it does not hold: see OwedCopies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "host/ports/OwedCopies.h"

namespace ostrel::host {

class OwedAnswers {
 public:
  using Frame = std::vector<std::uint8_t>;

  explicit OwedAnswers(LateListener listener = {}) : lateness_(std::move(listener)), copies_(lateness_) {}

  /// `answerMs`: the time-out, `marginMs`: added to every horizon.
  void SetTimes(std::uint32_t answerMs, std::uint32_t marginMs);

  // All ticks are those of platform::TickCount; requests and frames are whole, with their checks.
  void Sent(std::span<const std::uint8_t> request, std::uint32_t tick);
  /// The copy that is sent has left as a whole only now.
  void HasLeft(std::uint32_t tick) { copies_.HasLeft(tick); }
  /// A frame came that may answer the request that was sent last. True when it can be believed; the request is then answered.
  bool Came(std::span<const std::uint8_t> frame, std::uint32_t tick);
  /// A frame came that answers nothing now.
  void CameStray(std::span<const std::uint8_t> frame, std::uint32_t tick);
  /// The wait for the answer to the last request brought nothing.
  void StayedSilent();

  /// How long sending `request` has to be put off, by ms; 0: it can go now. Copies that should arrive any moment are waited
  /// for. A command waits until nothing is owed, since "done" answers them all and none is sent twice to make sure.
  [[nodiscard]] std::uint32_t PutOffMs(std::span<const std::uint8_t> request, std::uint32_t tick);
  /// More different answers to the last request came than strangers can be among them: what is asked for changes by the moment.
  /// From now on such requests go when they are alone.
  [[nodiscard]] bool ValuesChange(std::uint32_t tick);
  /// Until no stranger is left for the last request; ms.
  [[nodiscard]] std::uint32_t UntilAloneMs(std::uint32_t tick);
  /// The most that one call waits for late answers to pass; then it fails, so that a caller can be stopped meanwhile. Long enough
  /// for what is usually owed: a caller that tries once would otherwise be put off in each of its passes; ms.
  [[nodiscard]] std::uint32_t LongestHoldMs() const;
  /// How long an answer of this meter is waited for; ms.
  [[nodiscard]] std::uint32_t AnswerWaitMs(std::uint8_t address) const { return lateness_.AnswerWaitMs(address); }

 private:
  struct Arrival {
    Frame request;  // that was answered; empty: none
    Frame frame;
    std::uint32_t tick;
    std::size_t times = 1;  // that it may come again
  };
  /// What is known of the answers to a request.
  struct Known {
    Frame frame;             // the last one
    std::uint32_t tick = 0;  // when it came
    int alike = 0;           // so many in a row were this one
    bool changes = false;    // from copy to copy
  };

  /// After so many answers as they should be a meter is calm.
  static constexpr int kCalmAfter = 200;
  /// Answers in a row.
  struct Calm {
    int sinceStray = 0;
    int sinceSilence = 0;
  };
  [[nodiscard]] Calm CalmOf(std::uint8_t address) const {
    const auto calm = calm_.find(address);
    return calm == calm_.end() ? Calm{} : calm->second;
  }

  void Forget(std::uint32_t tick);
  /// Frames of this kind that may come without being the last request's.
  [[nodiscard]] std::size_t MostStrange(const Arrival& arrival) const;
  [[nodiscard]] std::size_t Alike(std::span<const std::uint8_t> frame) const;
  [[nodiscard]] bool IsBelievable(const Arrival& arrival) const;
  [[nodiscard]] bool StandsStill(const Arrival& arrival) const;
  void Remember(const Arrival& believed, std::size_t times);
  /// Of a meter from which nothing has come for long that was not asked for.
  [[nodiscard]] bool SendsOnce(std::uint8_t address) const { return CalmOf(address).sinceStray >= kCalmAfter; }
  /// And which has answered each time.
  [[nodiscard]] bool IsCalm(std::uint8_t address) const {
    return SendsOnce(address) && CalmOf(address).sinceSilence >= kCalmAfter;
  }
  /// How often the same frame, which was another request's lately, may come again. A meter that sends once for
  /// long is trusted to: many answers are alike, such as those of unused tariffs.
  [[nodiscard]] std::size_t Twins(std::span<const std::uint8_t> frame) const;
  void Stray(const Arrival& arrival);
  void Believe(const Arrival& believed);
  void Close();
  /// The request is put off until no more copies may be taken for its answer.
  [[nodiscard]] std::size_t MostStrangersFor(std::span<const std::uint8_t> request) const;
  /// Of the answers to the request; 0: unknown.
  [[nodiscard]] std::size_t KnownLength(std::span<const std::uint8_t> request) const;

  Lateness lateness_;
  OwedCopies copies_;
  std::uint32_t marginMs_ = 100;
  std::vector<Arrival> came_;                     // for the last request, not believed so far
  std::vector<Arrival> answered_;                 // lately
  std::vector<Arrival> unbelieved_;               // lately, for requests that another followed before they were answered
  std::map<std::uint8_t, Calm> calm_;             // by meter
  std::map<Frame, Known> known_;                  // by request
  std::map<std::uint8_t, std::uint32_t> strays_;  // by meter, the tick at which one came last
  std::optional<std::uint32_t> settled_;          // the tick until which copies of the last request are still waited for
  std::optional<std::uint32_t> quiet_;  // the tick before which no command goes, for a double of the last status may come
};

}  // namespace ostrel::host
