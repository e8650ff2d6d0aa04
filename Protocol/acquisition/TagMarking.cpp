#include "Protocol/acquisition/TagMarking.h"

#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/clock.h"

namespace ostrel {
namespace {

void Mark(CDeviceTag& tag, TagQuality quality) {
  if (tag.Value.vt == VT_R4) tag.Value.fltVal = 0.0F;
  tag.Timestamp = platform::UtcFileTime();
  tag.Quality = quality;
}

/// Shows a client that the event log asked for has not been read.
void KeepLogNumber(DeviceEntry& entry) {
  if (entry.LogRequest != 0) entry.LogNumber = entry.LogRequest;
}

}  // namespace

void MarkLost(DeviceEntry& entry) {
  for (CDeviceTag* tag : entry.Tags) {
    KeepLogNumber(entry);
    if (KindOf(tag->TagNumber) == TagKind::ConnectionState) {
      tag->Value.boolVal = 0;
      tag->Quality = kQualityGood;
    } else {
      Mark(*tag, kQualityDeviceFailure);
    }
  }
}

void MarkSwitchedOff(DeviceEntry& entry) {
  for (CDeviceTag* tag : entry.Tags) {
    if (KindOf(tag->TagNumber) == TagKind::Exchange) continue;
    KeepLogNumber(entry);
    Mark(*tag, kQualityUncertain);
  }
}

void ShowZero(CDeviceTag& tag) {
  tag.Value.vt = VT_R4;
  tag.Value.fltVal = 0.0F;
  tag.Quality = kQualityGood;
}

}  // namespace ostrel
