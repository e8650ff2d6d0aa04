// The copies of requests that were sent and whose answers may still be on their way. A copy is kept until it was answered
// beyond doubt or until no answer to it comes any more, which time alone decides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/ports/Lateness.h"

namespace ostrel::host {

/// No answer that comes later than this after its request is reckoned with, unless the time-out is long or the meter was seen
/// to be later still; ms. Modems and loaded serial servers stay below.
inline constexpr std::uint32_t kLongestLatenessMs = 2500;
/// An answer of four bytes is a status and carries no value.
inline constexpr std::size_t kStatusFrame = 4;

/// Test of the connection, opening of the channel, writing: all of them are answered by a status alone.
[[nodiscard]] bool IsCommand(std::span<const std::uint8_t> request);

class OwedCopies {
 public:
  using Frame = std::vector<std::uint8_t>;

  explicit OwedCopies(Lateness& lateness) : lateness_(lateness) {}

  void SetMargin(std::uint32_t marginMs) { marginMs_ = marginMs; }

  /// How long after its request an answer may come of a meter that was not seen to be later; ms.
  [[nodiscard]] std::uint32_t UsualHorizonMs() const;
  /// Drops what time has settled. To be called before anything is asked.
  void Forget(std::uint32_t tick);
  void Sent(std::span<const std::uint8_t> request, std::uint32_t tick);
  /// The copy that is sent has left as a whole only now.
  void HasLeft(std::uint32_t tick) { last_.sent.back() = tick; }
  /// The last request was answered or given up: what is left of its copies stays owed.
  void Close();
  /// The request that was sent last; empty once it is closed.
  [[nodiscard]] const Frame& Last() const { return last_.request; }
  /// How often the last request was sent.
  [[nodiscard]] std::size_t Copies() const { return last_.copies; }
  /// A frame came that may be an answer to the last request.
  void Came(std::uint32_t tick);
  /// It was one.
  void Answered(std::uint32_t tick);
  /// How long such answers are.
  void SetLength(std::size_t length) { last_.length = length; }
  /// A frame came that answers nothing now.
  void CameStray(std::span<const std::uint8_t> frame, std::uint32_t tick);

  /// The other requests whose answers, of this length (0: any), may come in place of the last request's; one for each copy.
  [[nodiscard]] std::vector<Frame> Strangers(std::size_t length, std::uint32_t tick) const;

  /// A copy that an answer to `request` may be taken for.
  struct Owed {
    std::uint32_t leftMs;  // until time settles it
    std::uint32_t soonMs;  // until it should have been answered
    std::size_t length;    // of its answer; 0: unknown

    [[nodiscard]] bool Fits(std::size_t other) const { return length == 0 || other == 0 || length == other; }
  };
  [[nodiscard]] std::vector<Owed> InTheWayOf(std::span<const std::uint8_t> request, std::uint32_t tick) const;

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

  [[nodiscard]] std::uint32_t HorizonMs(const Run& run) const;
  [[nodiscard]] std::int32_t Left(const Run& run, std::uint32_t sent, std::uint32_t tick) const;
  [[nodiscard]] bool CanAnswer(const Run& run, std::span<const std::uint8_t> frame, std::uint32_t tick) const;
  void Begin(std::span<const std::uint8_t> request, std::uint32_t tick);
  void Guess(Run& run, std::uint32_t tick);
  void NoteLateness(const Run& run);

  Lateness& lateness_;
  std::uint32_t marginMs_ = 100;
  std::vector<Run> runs_;  // of earlier requests
  Run last_;
};

}  // namespace ostrel::host
