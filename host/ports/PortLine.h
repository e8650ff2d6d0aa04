// A line of questions and answers over a byte stream: when an answer is over, how stale input is thrown away, and how the
// echo of an adapter is taken out.
//
// Answers carry no number. One that comes after its request was given up would be taken for the answer to the next
// request, often of the same length, and a wrong value with good quality would be the result. The port knows no more of
// frames than their check, so it goes by what it sees: after a read that brought nothing (the request is being given up, or
// the caller asked for zero bytes because what came was spoiled), after a spoiled echo, when stale bytes turn up, and when a
// request is sent again that was not answered by bytes with a right check, the line has to be quiet for the late guard before
// anything more is sent. A request that was answered may be asked again at once: nothing more is on its way. A read that
// brought a piece needs no guard of its own: the caller reads on, and the read that then brings nothing raises it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/ports/ByteStream.h"

namespace ostrel::host {

struct LineOptions {
  std::uint32_t lateGuardMs = 100;  // 0: no guard
  bool echo = false;                // the adapter repeats what is sent
};

/// A line that never gets quiet is given up after this long, so that noise cannot hold a caller for ever.
inline constexpr std::uint32_t kNeverQuietMs = 3000;

class PortLine {
 public:
  PortLine(std::unique_ptr<ByteStream> stream, LineOptions options);

  [[nodiscard]] bool SetMode(const LineMode& mode);
  /// Wait for an answer to begin, and the quiet that ends one; ms.
  void SetTimeouts(std::uint32_t answerMs, std::uint32_t quietMs);

  /// Throws stale input away. False when the line does not get quiet: nothing may be sent.
  [[nodiscard]] bool Purge();
  /// Returns when the bytes have left, so that the wait for the answer begins there. False: not sent.
  [[nodiscard]] bool Send(const std::uint8_t* bytes, std::size_t size);

  struct Received {
    std::size_t count;
    bool echoRight;
  };
  [[nodiscard]] Received Receive(std::uint8_t* buffer, std::size_t wanted);

  [[nodiscard]] bool Failed() const;

 private:
  [[nodiscard]] std::uint32_t QuietMs() const;
  bool DropInput(std::uint32_t waitMs);
  [[nodiscard]] bool WaitForQuiet();
  [[nodiscard]] std::size_t Gather(std::uint8_t* buffer, std::size_t wanted);
  [[nodiscard]] bool SwallowEcho(bool& silent);

  std::unique_ptr<ByteStream> stream_;
  LineOptions options_;
  LineMode mode_;
  std::uint32_t answerMs_ = 500;
  std::uint32_t quietMs_ = 5;
  bool modeRefused_ = false;
  /// An answer to an earlier request may still be on its way. True at first: nobody knows what was asked before.
  bool lateAnswerPossible_ = true;
  bool waited_ = false;  // the last purge waited for quiet
  std::vector<std::uint8_t> lastRequest_;
  std::vector<std::uint8_t> answer_;  // what came since that request
  std::vector<std::uint8_t> awaitedEcho_;
};

}  // namespace ostrel::host
