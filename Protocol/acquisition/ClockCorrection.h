// Keeping the meters' clocks in step with the computer's. A clock that is more than two minutes off moves two minutes a
// day, so that no interval of a load profile is skipped or counted twice; a nearer one is set and left alone for the
// configured number of days.
#pragma once

#include <cstdint>

namespace ostrel {

class CProtocol;
struct DeviceEntry;

inline constexpr std::uint32_t kClockAnswer = 11;

/// Reads the meter's clock into `answer`; 1 or 0. The caller holds ExchangeLock.
std::uint32_t ReadMeterClock(CProtocol& protocol, std::uint32_t device, std::uint8_t (&answer)[kClockAnswer]);

struct ClockSetting {
  std::uint8_t hours;
  std::uint8_t minutes;
  std::uint8_t seconds;
};

/// Whether the configuration asks for a look at the meter's clock now.
[[nodiscard]] bool ClockCheckIsDue(const CProtocol& protocol, const DeviceEntry& entry);

/// 1 when a correction is due, with the time to send.
std::uint32_t CompareClock(CProtocol& protocol, DeviceEntry& entry, const std::uint8_t (&answer)[kClockAnswer],
                           ClockSetting& setting);

/// Whether the meter shows an hour that the computer's time zone has twice, at the end of summer time. Which of the two it
/// means cannot be told, and the wrong one would look like a clock that is an hour off.
[[nodiscard]] bool ShowsRepeatedHour(const std::uint8_t (&answer)[kClockAnswer]);

/// Sends the correction; always 1, a failure is reported and does not end the cycle.
std::uint32_t CorrectMeterClock(CProtocol& protocol, std::uint32_t device, const ClockSetting& setting);

}  // namespace ostrel
