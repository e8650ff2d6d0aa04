// The walk over a load profile: lists the record times of an interval and keeps the records, so that the values can be
// given without asking the meter again.
#pragma once

#include <cstdint>

#include "Protocol/meter/MeterParameters.h"
#include "Protocol/meter/MeterRequest.h"
#include "Protocol/model/HistoryTypes.h"

namespace ostrel {

class Meters;
struct HistoryState;

struct ProfileInterval {
  MeterRef meter;
  std::uint32_t meterType;
  std::uint32_t tagId;
  Profile profile;
  std::uint32_t period;  // minutes, not 0
  FILETIME start;
  FILETIME end;  // not included
};

/// Appends the times to the list, oldest first. 1, or 0 when the meter could not be asked, was exchanged for another one
/// in the device table, or memory was short; what was listed stays. Waits for other walks of the object; the caller does
/// not hold ExchangeLock.
std::uint32_t ProfileWalk(Meters& meters, HistoryState& kept, const ProfileInterval& interval, TimestampList& list);

}  // namespace ostrel
