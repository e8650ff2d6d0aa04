// What happens on a channel's line while it is polled: every request, what came for it, and how the meters fare by it.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "host/ports/ByteStream.h"

namespace ostrel::host {

struct RecordedExchange {
  std::vector<std::uint8_t> request;
  std::vector<std::uint8_t> answer;           // as it came
  std::optional<std::uint32_t> turnaroundMs;  // from the request's last byte to the answer's first
  std::optional<std::int64_t> clockOffsetS;   // of a clock request, when its answer came
};

/// Of one meter, since the start.
struct LinkCounts {
  std::uint32_t requests = 0;
  std::uint32_t answers = 0;  // whole frames, also those that refuse
  std::uint32_t silent = 0;
  std::uint32_t spoiled = 0;  // something came, and no frame of this meter
  std::uint32_t retries = 0;  // the same request again behind one that was lost
  std::uint32_t repeats = 0;  // and behind one that was answered: where the port asks twice before it believes
  std::uint64_t sentBytes = 0;
  std::uint64_t receivedBytes = 0;
  std::uint32_t medianMs = 0;  // of the turnaround
  std::uint32_t worstMs = 0;
  std::optional<std::int64_t> clockOffsetS;  // the meter's clock is ahead by this, when it was read last

  [[nodiscard]] std::uint32_t Lost() const { return silent + spoiled; }
};

class LinkRecorder final : public StreamWatcher {
 public:
  /// `echo`: what is sent comes back before the answer.
  explicit LinkRecorder(bool echo) : echo_(echo) {}

  void Sent(std::span<const std::uint8_t> bytes) override;
  void Received(std::span<const std::uint8_t> bytes) override;

  [[nodiscard]] LinkCounts Of(std::uint32_t address) const;
  /// From here on whole exchanges are kept.
  void Keep();
  [[nodiscard]] std::vector<RecordedExchange> Kept() const;

 private:
  struct Ledger {
    LinkCounts counts;
    std::map<std::uint32_t, std::uint32_t> turnarounds;  // ms, how often
  };

  void Close();
  static void Book(const RecordedExchange& exchange, Ledger& ledger);

  bool echo_;
  mutable std::mutex mutex_;
  std::map<std::uint8_t, Ledger> ledgers_;
  std::vector<RecordedExchange> kept_;
  bool keep_ = false;
  bool asked_ = false;
  bool lost_ = false;  // the last exchange was
  RecordedExchange current_;
  std::size_t echoLeft_ = 0;
  std::uint32_t sentAt_ = 0;
};

}  // namespace ostrel::host
