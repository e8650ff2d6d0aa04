// Keeping the meters' clocks in step with the computer's. A clock that is more than two minutes off moves two minutes a
// day, so that no interval of a load profile is skipped or counted twice; a nearer one is set and left alone for the
// configured number of days.
#pragma once

#include <cstdint>

namespace ostrel {

class Meters;
struct DeviceEntry;

inline constexpr std::uint32_t kClockAnswer = 11;

/// Reads the meter's clock into `answer`; 1 or 0. The caller holds ExchangeLock.
std::uint32_t ReadMeterClock(Meters& meters, std::uint32_t device, std::uint8_t (&answer)[kClockAnswer]);

struct ClockSetting {
  std::uint8_t hours;
  std::uint8_t minutes;
  std::uint8_t seconds;
};

/// 1 when a correction is due, with the time to send.
std::uint32_t CompareClock(Meters& meters, DeviceEntry& entry, const std::uint8_t (&answer)[kClockAnswer], ClockSetting& setting);

/// Whether the meter shows a time that the computer's time zone does not have once: in the hour that comes twice, at the end of
/// summer time, which of the two it means cannot be told; one that the spring change skips, or a day that its month does not
/// have, is read as another time. A clock that is right would look like one that is an hour off.
[[nodiscard]] bool ShowsUnclearTime(const std::uint8_t (&answer)[kClockAnswer]);

/// Sends the correction; always 1, a failure is reported and does not end the cycle.
std::uint32_t CorrectMeterClock(Meters& meters, std::uint32_t device, const ClockSetting& setting);

/// The clock's turn in a cycle: read, and corrected when that is due. False when it could not be read.
bool CheckClock(Meters& meters, std::uint32_t device);

}  // namespace ostrel
