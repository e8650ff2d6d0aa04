// Finding the hour block of a load profile in the meter's memory. The meter searches by itself: one request starts it from
// a memory address, the next ones ask how it went.
#pragma once

#include <cstdint>

#include "Protocol/meter/MeterRequest.h"
#include "platform/variant.h"

namespace ostrel {

/// A search that runs on and on must not hold a walk for ever. The real ones take a few polls.
inline constexpr int kMaxSearchPolls = 100;
inline constexpr std::uint32_t kSearchPollPauseMs = 10;

struct HourQuery {
  std::uint8_t profile;
  SYSTEMTIME hour;
  std::uint8_t flag;
  std::uint8_t period;
};

enum class HourSearch : std::uint8_t {
  Failed,   // an exchange failed, or the search did not end in time: the hour may exist
  Missing,  // the memory does not hold it
  Found,
};

/// `header` is where the search starts, and then the found header's address, or 0xFFFF when the meter says that it has no
/// such hour. The meter's ProfileHeaderAddress follows it, for the next walk.
[[nodiscard]] HourSearch FindHourHeader(Meters& meters, const MeterRef& meter, const HourQuery& query, std::uint16_t& header);

}  // namespace ostrel
