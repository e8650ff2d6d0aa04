// What stands between the host's port and the meters: it plays the wire, puts the faults in, and knows the truth - what each
// meter said to which request, and from which state.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>

#include "host/ports/ByteStream.h"
#include "simulator/Meter.h"
#include "tests/campaign/Campaign.h"
#include "tests/campaign/Scenario.h"

namespace ostrel::campaign {

/// A meter's state when it took a request: good values that come of it are those that it held then.
struct Moment {
  [[nodiscard]] sim::MeterView View() const;

  sim::Meter* meter;
  sim::MeterSettings settings;
  sim::WallClock wall;
  sim::MeterTime now;
};
[[nodiscard]] Moment MomentOf(sim::Meter& meter);

/// Copies of one request, one after another, from one thread to one address.
struct Transaction {
  Bytes request;
  std::vector<Moment> moments;         // every meter that took a copy
  bool spoiled = false;                // a fault met a copy
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

/// A request with what comes back for it.
struct Passing {
  Bytes request;
  sim::Meter* meter = nullptr;  // the first with its address
  Bytes before;
  Bytes answer;
  Bytes after;
  std::int64_t lateMs = 0;
  std::int64_t gapMs = 0;  // between bytes
  std::string faults;
};

/// Times are true ones, ms since 1970 where nothing else is said.
struct Line {
  Line(const Scenario& scenario, std::uint32_t channel);

  // --- the port's side
  [[nodiscard]] bool Open();
  bool Send(std::span<const std::uint8_t> request);
  [[nodiscard]] std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs);

  // --- the watchers' side
  /// The last transaction of a thread with an address; null before the first.
  [[nodiscard]] const Transaction* Last(std::uint32_t thread, std::uint32_t address) const;
  /// Whether a fault met the line after this exchange, or still does.
  [[nodiscard]] bool Disturbed(std::uint32_t since) const;
  /// What comes from now on is undisturbed.
  void Calm();
  /// Told of every request that leaves, before the meters get it.
  std::function<void()> sending;
  std::vector<std::unique_ptr<sim::Meter>> meters;
  std::deque<Exchange> record;
  std::uint32_t exchanges = 0;
  /// Milliseconds that requests, answers and the waits for them have taken, and the pauses that belong to each.
  std::int64_t spentMs = 0;
  std::uint32_t applied = 0;       // faults
  std::int64_t noisyUntil = 0;     // nobody can be heard
  std::int64_t troubledUntil = 0;  // awake time; the port may put requests off because of what was before
  bool failed = false;

  // --- what the faults change
  const ChannelPlan& plan;
  std::int64_t downUntil = 0, stuckUntil = 0, refusedUntil = 0;
  std::int64_t silentUntil = 0;
  std::uint8_t silentAddress = 0;
  Bytes heldBack;
  void Arrive(const Bytes& bytes, std::int64_t fromUs, std::int64_t gapUs, std::uint32_t answers = 0);

 private:
  struct Arrival {
    std::int64_t atUs;
    std::uint8_t byte;
    std::uint32_t answers;  // the exchange that it is the answer to; 0: noise
  };

  void Check();
  void Begin(const Bytes& request);
  [[nodiscard]] Bytes Ask(const Bytes& request);
  void Spoil(Passing& passing);
  void Note(const Passing& passing, const Bytes& truth);
  void Deliver(const Passing& passing);
  [[nodiscard]] std::int64_t CharacterUs() const { return 11'000'000 / plan.known.baud; }

  std::vector<Fault> faults_;
  std::size_t nextFault_ = 0;
  std::deque<Arrival> arrivals_;
  std::int64_t lastArrivalUs_ = 0;
  std::int64_t sentMs_ = -1'000'000;
  std::int64_t busyUntilMs_ = -1'000'000;  // of the last thing that happened on the wire
  std::uint32_t drills_ = 0;
  bool strayHeard_ = false;  // since the last request an answer to an earlier one came
  bool awaited_ = true;      // somebody has waited for the answer to the last request
  bool calm_ = false;
  std::uint32_t lastFaultAt_ = 0;
  std::map<std::pair<std::uint32_t, std::uint32_t>, Transaction> last_;  // by thread and address
};

/// Whom the request went to that was sent last, on any line.
inline std::uint8_t askedAddress = 0;

/// The line as a device of the host's port.
struct LineStream final : host::ByteStream {
  explicit LineStream(Line& played) : line(played) {}
  bool SetMode(const host::LineMode&) override { return true; }
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override {
    return line.Receive(buffer, size, waitMs);
  }
  bool Send(const std::uint8_t* bytes, std::size_t size) override { return line.Send({bytes, size}); }
  bool Failed() const override { return line.failed; }
  std::uint32_t OwnGapMs() const override { return 0; }
  Line& line;
};

}  // namespace ostrel::campaign
