// Which answers may still be on their way. Answers carry no number, so one that comes after its request was given up looks
// like the answer to the next request: a wrong value with good quality. The account keeps every copy of a request that was
// sent and not answered, until it is certain that no answer to it comes any more, and says of an answer how many strangers
// could stand in its place.
//
// An answer is believed when it has come once more often, byte by byte the same, than strangers may still come: at least one
// of them then is the request's own. On a line where nothing is owed that is the first one. It holds whether the line keeps
// the order of its answers or not, and needs no wait. Where a copy was answered so late that no wait would have taken it for
// possible, it does not hold: see HorizonMs.
//
// A line that brings more answers than it was asked doubles them. From then on each stranger may come twice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <vector>

namespace ostrel::host {

/// No answer that comes later than this after its request is reckoned with, unless the time-out is long or the meter was seen
/// to be later still; ms. Modems and loaded serial servers stay below.
inline constexpr std::uint32_t kLongestLatenessMs = 2500;
/// The most that a meter is waited for because it was late before; ms.
inline constexpr std::uint32_t kLongestAnswerWaitMs = 3000;

/// Told when a meter's answers are seen to come after the time-out, and again when they come much later than was told.
using LateListener = std::function<void(std::uint8_t address, std::uint32_t latenessMs)>;

class OwedAnswers {
 public:
  using Frame = std::vector<std::uint8_t>;

  explicit OwedAnswers(LateListener listener = {}) : listener_(std::move(listener)) {}

  /// `answerMs`: the time-out, `marginMs`: added to every horizon.
  void SetTimes(std::uint32_t answerMs, std::uint32_t marginMs);

  // All ticks are those of platform::TickCount; requests and frames are whole, with their checks.
  void Sent(std::span<const std::uint8_t> request, std::uint32_t tick);
  /// A frame came that may answer the request that was sent last. True when it can be believed; the request is then answered.
  bool Came(std::span<const std::uint8_t> frame, std::uint32_t tick);
  /// A frame came that answers nothing now.
  void CameStray(std::span<const std::uint8_t> frame, std::uint32_t tick);
  /// The wait for the answer to the last request brought nothing.
  void StayedSilent();

  /// How long sending `request` has to be put off, by ms; 0: it can go now. Copies that should arrive any moment are waited
  /// for, and so are commands, since "done" answers them all and none is sent twice to make sure.
  [[nodiscard]] std::uint32_t PutOffMs(std::span<const std::uint8_t> request, std::uint32_t tick);
  /// The answers to the last request differ from copy to copy. From now on such requests go when they are alone.
  void ValuesChange();
  /// Until no stranger is left for the last request; ms.
  [[nodiscard]] std::uint32_t UntilAloneMs(std::uint32_t tick);
  /// How long an answer of this meter is waited for; ms.
  [[nodiscard]] std::uint32_t AnswerWaitMs(std::uint8_t address) const;

 private:
  /// The copies of one request from its first sending until it was answered or given up.
  struct Run {
    Frame request;
    std::vector<std::uint32_t> sent;  // ticks of the copies that are not answered
    std::size_t length = 0;           // of an answer to it; 0: unknown
    std::uint32_t copies = 0;         // sent in all
    std::uint32_t worstMs = 0;        // of its answers so far
    std::size_t strays = 0;           // that came and may be answers to `sent`
  };
  struct Arrival {
    Frame frame;
    std::uint32_t tick;
  };
  struct Answered {
    Frame request;
    Frame frame;
    std::uint32_t tick;
  };
  struct Lateness {
    std::uint32_t worstMs = 0;  // 0: within the time-out
    std::uint32_t toldMs = 0;
    std::uint32_t usualMs = 0;  // of the last request that one copy and one answer made up; 0: none yet
    int silences = 0;
  };

  [[nodiscard]] std::uint32_t HorizonMs(const Run& run) const;
  /// ms from now until the copy is settled by time alone; not positive when it is.
  [[nodiscard]] bool CanAnswer(const Run& run, std::span<const std::uint8_t> frame, std::uint32_t tick) const;
  [[nodiscard]] std::int32_t Left(const Run& run, std::uint32_t sent, std::uint32_t tick) const;
  void Forget(std::uint32_t tick);
  /// Copies of other requests whose answer, of this length (0: any), may come in place of the last request's.
  [[nodiscard]] std::size_t Strangers(std::size_t frameLength, std::uint32_t tick) const;
  [[nodiscard]] bool IsBelievable(const Arrival& arrival) const;
  [[nodiscard]] bool HasTwin(std::span<const std::uint8_t> frame) const;
  void Settle(std::span<const std::uint8_t> frame, std::uint32_t tick);
  void Guess(Run& run, std::uint32_t tick);
  bool TakeOff(Run& run, std::uint32_t tick);
  void Believe(const Arrival& believed);
  /// How long a copy that should be answered soon is waited for; ms.
  [[nodiscard]] std::uint32_t SoonMs(std::uint8_t address) const;
  void Close();
  void NoteLateness(const Run& run);

  LateListener listener_;
  std::uint32_t answerMs_ = 500;
  std::uint32_t marginMs_ = 100;
  std::vector<Run> runs_;      // of earlier requests
  Run current_;                // of the request sent last
  std::vector<Arrival> came_;  // for it, not believed so far
  std::vector<Answered> answered_;
  std::map<std::uint8_t, Lateness> late_;
  std::map<Frame, std::size_t> changing_;  // kinds of requests whose answers change by the moment, and how long these are
  bool doubles_ = false;
};

}  // namespace ostrel::host
