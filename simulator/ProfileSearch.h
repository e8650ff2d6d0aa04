// The search for an hour of a profile: a command starts it, and its result is asked for until it no longer runs.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace ostrel::sim {

enum class Status : std::uint8_t;
struct MeterView;

class ProfileSearch {
 public:
  /// Profile, start address (two bytes; FFFF for the oldest hour), hour, day, month and year (packed decimals), 0 and the
  /// profile's period.
  Status Start(const MeterView& view, std::span<const std::uint8_t> parameters);

  /// State (with the profile in the high four bits), two unused bytes, header address. Counts as one poll.
  [[nodiscard]] std::vector<std::uint8_t> Result();

 private:
  enum class State : std::uint8_t { Found = 0, Running = 1, NoSuchHour = 2 };

  static constexpr std::uint16_t kNoHeader = 0xFFFF;

  std::uint8_t profile_ = 0;
  State outcome_ = State::NoSuchHour;
  std::uint16_t header_ = kNoHeader;
  std::uint32_t polls_left_ = 0;
};

}  // namespace ostrel::sim
