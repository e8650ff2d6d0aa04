// What stands between the host's port and the meters: it plays the wire, puts the faults in, and knows the truth - what each
// meter said to which request, and from which state.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "host/ports/ByteStream.h"
#include "simulator/Meter.h"
#include "tests/campaign/Scenario.h"
#include "tests/campaign/System.h"

namespace ostrel::campaign {

using Bytes = std::vector<std::uint8_t>;

/// A meter's state when it took a request: good values that come of it are those that it held then.
struct Moment {
  sim::Meter* meter;
  sim::MeterSettings settings;
  sim::WallClock wall;
  sim::MeterTime now;

  [[nodiscard]] sim::MeterView View() const;
};

/// Copies of one request, one after another, from one thread to one address.
struct Transaction {
  std::uint32_t thread = 0;
  std::uint8_t address = 0;
  Bytes request;
  std::vector<Moment> moments;  // every meter that took a copy
  bool spoiled = false;         // a fault met a copy
  std::optional<std::uint8_t> status;  // what came back of a clean four-byte answer
};

/// One exchange for the record.
struct Exchange {
  std::int64_t atMs;
  std::uint32_t thread;
  Bytes request;
  Bytes received;
  std::string faults;
};

class Line {
 public:
  Line(const Scenario& scenario, std::uint32_t channel, VirtualTime& time);

  // --- the port's side
  [[nodiscard]] bool Open();
  bool Send(std::span<const std::uint8_t> request);
  [[nodiscard]] std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs);
  [[nodiscard]] bool Failed() const { return failed_; }

  // --- the watchers' side
  /// The last transaction of a thread with an address; null before the first.
  [[nodiscard]] const Transaction* Last(std::uint32_t thread, std::uint8_t address) const;
  [[nodiscard]] std::uint32_t Exchanges() const { return exchanges_; }
  /// Milliseconds that requests, answers and the waits for them have taken, and the pauses that belong to each.
  [[nodiscard]] std::int64_t Spent() const { return spentMs_; }
  /// Until when, in true time, nobody can be heard.
  [[nodiscard]] std::int64_t NoisyUntil() const { return noisyUntil_; }
  [[nodiscard]] std::uint32_t Applied() const { return applied_; }
  /// Whether a fault met the line after this exchange, or still does.
  [[nodiscard]] bool Disturbed(std::uint32_t since) const;
  [[nodiscard]] const std::deque<Exchange>& Record() const { return record_; }
  [[nodiscard]] std::span<const std::unique_ptr<sim::Meter>> Meters() const { return meters_; }
  /// What comes from now on is undisturbed.
  void Calm();
  /// Told of every request that leaves, before the meters get it.
  std::function<void(std::span<const std::uint8_t>)> sending;

 private:
  struct Arrival {
    std::int64_t atUs;
    std::uint8_t byte;
    std::uint32_t answers;  // the exchange that it is the answer to; 0: noise
  };
  struct Passing {
    std::span<const std::uint8_t> request;
    Bytes before;
    Bytes answer;
    Bytes after;
    std::int64_t lateMs = 0;
    std::int64_t gapMs = 0;  // between bytes
    std::string faults;
  };

  void Check(std::span<const std::uint8_t> request);
  void Begin(std::span<const std::uint8_t> request);
  [[nodiscard]] Bytes Ask(std::span<const std::uint8_t> request);
  void Spoil(const Fault& fault, Passing& passing);
  void SpoilAnswer(const Fault& fault, Passing& passing);
  void SpoilWire(const Fault& fault, Passing& passing);
  void SpoilMeter(const Fault& fault, Passing& passing);
  void Deliver(const Passing& passing);
  void Arrive(const Bytes& bytes, std::int64_t fromUs, std::int64_t gapUs, std::uint32_t answers = 0);
  void Note(const Passing& passing, const Bytes& truth);
  [[nodiscard]] std::int64_t NowUs() const { return time_.True() * 1000; }
  [[nodiscard]] std::int64_t CharacterUs() const { return 11'000'000 / plan_.baud; }
  [[nodiscard]] sim::Meter* MeterOf(std::uint8_t address);

  const ChannelPlan& plan_;
  VirtualTime& time_;
  std::vector<std::unique_ptr<sim::Meter>> meters_;
  std::vector<Fault> faults_;
  std::size_t nextFault_ = 0;
  std::deque<Arrival> arrivals_;
  std::int64_t lastArrivalUs_ = 0;
  std::int64_t sentMs_ = -1'000'000;
  std::uint32_t drills_ = 0;
  bool awaited_ = true;  // somebody has waited for the answer to the last request
  std::int64_t busyUntilMs_ = -1'000'000;  // of the last thing that happened on the wire
  Bytes heldBack_;
  std::int64_t downUntil_ = 0, stuckUntil_ = 0, refusedUntil_ = 0;
  std::int64_t silentUntil_ = 0;
  std::uint8_t silentAddress_ = 0;
  bool failed_ = false;
  bool calm_ = false;
  std::uint32_t exchanges_ = 0;
  std::int64_t spentMs_ = 0;
  std::int64_t noisyUntil_ = 0;
  std::uint32_t applied_ = 0;
  std::uint32_t lastFaultAt_ = 0;
  std::vector<Transaction> last_;
  std::deque<Exchange> record_;
};

/// Whom the request went to that was sent last, on any line.
[[nodiscard]] std::uint8_t AskedAddress();

/// The line as a device of the host's port.
class LineStream final : public host::ByteStream {
 public:
  explicit LineStream(Line& line) : line_(line) {}
  bool SetMode(const host::LineMode&) override { return true; }
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override {
    return line_.Receive(buffer, size, waitMs);
  }
  bool Send(const std::uint8_t* bytes, std::size_t size) override { return line_.Send({bytes, size}); }
  bool Failed() const override { return line_.Failed(); }
  std::uint32_t OwnGapMs() const override { return 0; }

 private:
  Line& line_;
};

}  // namespace ostrel::campaign
