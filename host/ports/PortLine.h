// A line of questions and answers over a byte stream: when an answer is over, how stale input is thrown away, and how the
// echo of an adapter is taken out.
//
// Frames that begin with another address than the one that was asked are dropped, so one meter's late answers are no other's
// (a request to address 0 takes any). Which of the rest are to be believed, and when a request may go, OwedAnswers says: where
// a late answer may come in the place of this one, the same request goes out again until one answer has come often enough,
// or, where values change meanwhile, the late ones are waited for. The caller, who knows the length of an answer, sees
// silence when none can be believed; it never sees the strangers.
//
// An answer is over when the line gets quiet, or as soon as it is one like the last answer to the same request: as long, with
// a right check, from the same meter. What else follows it then is met by the next purge, like all that was not asked for.
//
// Bytes that are no whole frame belong to nobody: after them the line has to be quiet for the late guard before anything
// more is sent, as on a fresh line, of which nobody knows what was asked before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "host/ports/AnswerLengths.h"
#include "host/ports/ByteStream.h"
#include "host/ports/OwedAnswers.h"

namespace ostrel::host {

struct LineOptions {
  std::uint32_t lateGuardMs = 100;  // 0: every frame from the right address is believed
  bool echo = false;                // the adapter repeats what is sent
  std::uint32_t pauseMs = 0;        // before a request that the port repeats, as its user keeps before each of his
};

/// A line that never gets quiet is given up after this long, so that noise cannot hold a caller for ever.
inline constexpr std::uint32_t kNeverQuietMs = 2000;

class PortLine {
 public:
  /// The account may outlive the line, for what is owed comes on the port's next line too.
  PortLine(std::unique_ptr<ByteStream> stream, LineOptions options,
           std::shared_ptr<OwedAnswers> owed = std::make_shared<OwedAnswers>());

  [[nodiscard]] bool SetMode(const LineMode& mode);
  /// Wait for an answer to begin, and the quiet that ends one; ms.
  void SetTimeouts(std::uint32_t answerMs, std::uint32_t quietMs);

  /// Throws stale input away. False when the line does not get quiet: nothing may be sent.
  [[nodiscard]] bool Purge();
  /// The wait for the answer begins when the bytes have left. False: not sent.
  [[nodiscard]] bool Send(const std::uint8_t* bytes, std::size_t size);

  struct Received {
    std::size_t count;
    bool echoRight;
  };
  [[nodiscard]] Received Receive(std::uint8_t* buffer, std::size_t wanted);

  [[nodiscard]] bool Failed() const;

 private:
  using Bytes = std::vector<std::uint8_t>;

  [[nodiscard]] std::uint32_t QuietMs() const;
  [[nodiscard]] bool Guarded() const { return options_.lateGuardMs != 0; }
  [[nodiscard]] bool MayAnswer(std::uint8_t address) const;
  [[nodiscard]] bool IsOwnEcho(std::span<const std::uint8_t> frame) const;
  bool DropInput(std::uint32_t waitMs);
  void Account(const Bytes& dropped);
  [[nodiscard]] bool WaitForQuiet();
  [[nodiscard]] bool WaitForOwed(std::span<const std::uint8_t> request);
  bool Transmit();
  /// `likely`: how long it is if it is like the last one; 0: nobody knows.
  [[nodiscard]] std::size_t Gather(std::uint8_t* buffer, std::size_t wanted, std::uint32_t waitMs, std::size_t likely = 0);
  [[nodiscard]] bool IsAnswer(std::span<const std::uint8_t> frame) const;
  [[nodiscard]] std::size_t OwnPart(std::uint8_t* buffer, std::size_t count);
  [[nodiscard]] std::size_t NextPiece(std::uint8_t* buffer, std::size_t wanted);
  [[nodiscard]] std::size_t AskUntilBelieved(std::uint8_t* buffer, std::size_t wanted, std::size_t count);
  void Learn(std::span<const std::uint8_t> answer);
  void LetStrangersPass();
  [[nodiscard]] bool SwallowEcho(bool& silent);

  std::unique_ptr<ByteStream> stream_;
  LineOptions options_;
  LineMode mode_;
  std::uint32_t answerMs_ = 500;
  std::uint32_t quietMs_ = 5;
  bool modeRefused_ = false;
  bool unquiet_ = true;  // bytes of nobody came, or nobody knows what was asked before
  std::shared_ptr<OwedAnswers> owed_;
  AnswerLengths lengths_;
  Bytes request_;
  Bytes answer_;  // what came since that request and was handed out
  Bytes awaitedEcho_;
  Bytes dropped_;  // keeps its room
};

}  // namespace ostrel::host
