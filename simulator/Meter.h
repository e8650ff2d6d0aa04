// One meter: request in, answer out. It holds an access channel, a clock and what has been written to it; everything that
// it measures comes from its model.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "simulator/MeterClock.h"
#include "simulator/MeterSettings.h"
#include "simulator/MeterSpec.h"
#include "simulator/Model.h"
#include "simulator/ProfileSearch.h"

namespace ostrel::sim {

/// The status byte of a four-byte answer.
enum class Status : std::uint8_t {
  Done = 0,
  Unknown = 1,           // no such request or parameter, or a value out of range
  LowLevel = 3,          // the channel's level is too low; also for a wrong password
  AlreadyCorrected = 4,  // the clock takes no (further) correction now
  ChannelClosed = 5,
  Busy = 6,
  Refused = 0x0F,
};

/// A meter at one moment, for who answers or predicts readings.
struct MeterView {
  const MeterSpec& spec;
  const Model& model;
  const MeterSettings& settings;
  WallClock wall;
  MeterTime now;  // which the wall clock shows in summer time, if the meter has it
};

class Meter {
 public:
  Meter(const MeterSpec& spec, std::uint64_t seed);

  /// The answer to a frame at a time; empty for silence, which is what another address or a wrong check gets.
  std::vector<std::uint8_t> Answer(std::span<const std::uint8_t> request, std::int64_t utcMs);

  /// The state that an answer at this time would be made from.
  [[nodiscard]] MeterView View(std::int64_t utcMs);

  [[nodiscard]] const MeterSpec& Spec() const { return spec_; }

  // What happens to a meter behind its master's back, for drills.
  [[nodiscard]] MeterSettings& Settings() { return settings_; }
  [[nodiscard]] MeterClock& Clock() { return clock_; }
  void CloseChannel() { open_level_ = 0; }

 private:
  using Reply = std::vector<std::uint8_t>;  // one status byte, or data

  [[nodiscard]] Reply ReplyTo(std::uint8_t code, std::span<const std::uint8_t> parameters, std::int64_t utcMs);
  [[nodiscard]] Reply Serve(std::uint8_t code, std::span<const std::uint8_t> parameters, std::int64_t utcMs);
  [[nodiscard]] Status OpenChannel(std::span<const std::uint8_t> password, std::int64_t utcMs);
  [[nodiscard]] Status Write(std::span<const std::uint8_t> parameters, std::int64_t utcMs);
  [[nodiscard]] bool IsUnknown(std::uint8_t code, std::span<const std::uint8_t> parameters) const;
  [[nodiscard]] std::optional<Status> Hesitation();

  MeterSpec spec_;
  Model model_;
  MeterSettings settings_;
  MeterClock clock_;
  ProfileSearch search_;
  int open_level_ = 0;  // of the access channel; 0: closed
  std::int64_t last_request_ms_ = 0;
  std::uint32_t requests_ = 0;  // that found the channel open
};

}  // namespace ostrel::sim
