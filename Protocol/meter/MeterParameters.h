// Three small requests that say what a meter's archives need to be read: its clock, its transformation coefficients and
// the integration period of a load profile. Each is one transaction.
#pragma once

#include <cstdint>

#include "platform/variant.h"

namespace ostrel {

class Meters;

/// Between an archive's or a walk's last answer and the question for the clock.
inline constexpr std::uint32_t kPauseBeforeClockMs = 200;

struct TransformCoefficients {
  std::int16_t K1;
  std::int16_t K2;
};

enum class Profile : std::uint32_t { Main = 0, Additional = 1, Third = 2 };

/// The meter's wall clock, digits unchecked; 1 read, 0 failed with the fields untouched.
std::uint32_t ReadMeterTime(Meters& meters, std::uint32_t device, SYSTEMTIME& fields);
/// Types 2 and 12 have none: both are 1 without a request.
std::uint32_t ReadTransformCoefficients(Meters& meters, std::uint32_t device, std::uint32_t meterType,
                                        TransformCoefficients& coefficients);
/// Minutes; 0 when the exchange failed or the profile is none of the three.
std::uint32_t ReadProfilePeriod(Meters& meters, std::uint32_t device, Profile profile);

}  // namespace ostrel
