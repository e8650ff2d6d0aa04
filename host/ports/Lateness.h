// How late each meter's answers are: how long one is worth waiting for, and what the engineer is told about it.
//
// An answer to the only copy of a request, with nothing else owed, shows how long the meter takes. Where a request went out
// again before its answer came, nobody can say which copy was answered: that only raises a suspicion, which lets the next
// answer be waited for longer. What then comes after the time-out of an only copy is late for certain, and told.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

namespace ostrel::host {

/// The most that a meter is waited for because it was late before; ms.
inline constexpr std::uint32_t kLongestAnswerWaitMs = 3000;

/// Told when a meter's answers come after the time-out for the second time, and again when they come much later than was told.
using LateListener = std::function<void(std::uint8_t address, std::uint32_t latenessMs)>;

class Lateness {
 public:
  explicit Lateness(LateListener listener) : listener_(std::move(listener)) {}

  void SetAnswerMs(std::uint32_t answerMs) { answerMs_ = answerMs; }
  [[nodiscard]] std::uint32_t AnswerMs() const { return answerMs_; }

  /// The answer to the only copy of a request took so long.
  void Measured(std::uint8_t address, std::uint32_t ms);
  /// An answer came so long after the only copy of the last request: be it that one's or an earlier one's, it took no less.
  void CameAfter(std::uint8_t address, std::uint32_t ms);
  /// One of several answers may have taken so long.
  void Suspected(std::uint8_t address, std::uint32_t ms);
  void Answered(std::uint8_t address) { meters_[address].silences = 0; }
  /// The wait for an answer brought nothing.
  void StayedSilent(std::uint8_t address);

  /// How long an answer of this meter is waited for; ms.
  [[nodiscard]] std::uint32_t AnswerWaitMs(std::uint8_t address) const;
  /// How long a copy that should be answered any moment is waited for; ms.
  [[nodiscard]] std::uint32_t SoonMs(std::uint8_t address) const;
  /// What its answers usually take; 0 while unknown; ms.
  [[nodiscard]] std::uint32_t UsualMs(std::uint8_t address) const;
  /// The latest that an answer of this meter seems to have been; 0: within the time-out.
  [[nodiscard]] std::uint32_t WorstMs(std::uint8_t address) const;

 private:
  struct Meter {
    std::uint32_t worstMs = 0;  // 0: within the time-out
    std::uint32_t toldMs = 0;
    std::uint32_t firstLateMs = 0;  // measured and not told; 0: none
    std::uint32_t usualMs = 0;      // as measured last; 0: not yet
    int silences = 0;               // in a row
  };

  void Tell(std::uint8_t address, Meter& meter, std::uint32_t ms);

  LateListener listener_;
  std::uint32_t answerMs_ = 500;
  std::map<std::uint8_t, Meter> meters_;
};

}  // namespace ostrel::host
