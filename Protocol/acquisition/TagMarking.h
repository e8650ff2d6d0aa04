// Values and qualities that tags get without an answer from their meter.
#pragma once

#include <cstdint>

namespace ostrel {

class CDeviceTag;
struct DeviceEntry;

/// The meter could not be served: 12 for every tag, with a fresh timestamp and 0.0 for numbers; "ConnectionState" is false
/// with good quality and keeps its timestamp. Texts and small integers keep their value under the bad quality.
/// Written without the tag lock: the host takes its snapshots under LockPoll.
void MarkLost(DeviceEntry& entry);

/// The meter's exchange is switched off: 64 for every tag but "Exchange".
void MarkSwitchedOff(DeviceEntry& entry);

/// A tag without a reading shows 0.0 with good quality; its timestamp stays.
void ShowZero(CDeviceTag& tag);

}  // namespace ostrel
