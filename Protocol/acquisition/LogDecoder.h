// Event-log tags: date and time of the two stamps of a log record.
#pragma once

#include <string>

#include "Protocol/model/CDeviceTag.h"

namespace ostrel {

struct DeviceEntry;

struct LogText {
  std::string text;
  TagQuality quality;
};

/// The tag's part of the record in the meter's LogCache.
[[nodiscard]] LogText DecodeLog(const DeviceEntry& entry, const CDeviceTag& tag);

}  // namespace ostrel
