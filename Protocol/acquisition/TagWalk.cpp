#include "Protocol/acquisition/TagWalk.h"

#include "Protocol/acquisition/AnswerSharing.h"
#include "Protocol/acquisition/TagMarking.h"
#include "Protocol/acquisition/TagWriter.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/TagCatalogue.h"

namespace ostrel {
namespace {

bool WritePending(CDeviceTag& tag) { return LoadFlag(tag.WritePending) != 0; }

/// A write waits until its tag was read well, so that nothing is written to a meter that does not answer; two commands do not.
bool WriteIsDue(CDeviceTag& tag, TagKind kind) {
  if (!WritePending(tag)) return false;
  return tag.Quality == kQualityGood || kind == TagKind::TimeCorrection || kind == TagKind::IndicationPeriod;
}

/// Reserved entries of the catalogue have zeros for a request. The powers P have the same zeros and are real readings.
bool HasNoReading(const CDeviceTag& tag, TagKind kind) {
  if (kind == TagKind::PowerReading) return false;
  return (tag.Code == 0 && tag.Param == 0) || kind == TagKind::TimeSetup;
}

bool ServedAlready(CDeviceTag& tag, TagKind kind) {
  return kind != TagKind::IndicationPeriod && tag.Updated != 0 && !(WritePending(tag) && tag.Quality == kQualityGood);
}

void Write(Meters& meters, CDeviceTag& tag, std::uint32_t device) {
  const LineGuard guard(meters);
  WriteTag(meters, tag, device);
}

enum class Reading : std::uint8_t { Due, DoneBefore, None };

/// What comes before the reading of a tag: a pending write, and the zero of a tag that has no reading.
Reading BeginServing(Meters& meters, CDeviceTag& tag, std::uint32_t device) {
  const TagKind kind = KindOf(tag.TagNumber);
  if (ServedAlready(tag, kind)) return Reading::DoneBefore;
  const bool command = kind == TagKind::TimeCorrection || kind == TagKind::IndicationPeriod;
  if (command) ShowZero(tag);
  if (WriteIsDue(tag, kind)) Write(meters, tag, device);
  if (command) return Reading::None;
  if (!HasNoReading(tag, kind)) return Reading::Due;
  ShowZero(tag);
  return Reading::None;
}

}  // namespace

std::uint32_t AnyTagInUse(Meters& meters, std::uint32_t device) {
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return 0;
  for (const CDeviceTag* tag : entry->Tags) {
    if (tag->InUse() != 0) return 1;
  }
  return 0;
}

void ClearUpdated(Meters& meters, std::uint32_t device) {
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return;
  for (CDeviceTag* tag : entry->Tags) tag->Updated = 0;
}

// A client's write may switch the meter's exchange on in the middle of the walk. What it was asked before that is not known, so
// its factors come first: the tags behind would be scaled with neutral ones and look good.
std::uint32_t ServeTags(Meters& meters, std::uint32_t device) {
  const bool switchedOff = LoadFlag(meters.Device(device)->ExchangeOn) == 0;
  for (std::uint32_t i = 0; i < meters.Device(device)->Tags.Size(); ++i) {
    CDeviceTag& tag = *meters.Device(device)->Tags[i];
    if (tag.InUse() == 0) continue;
    if (meters.Running == 0) return 1;
    if (BeginServing(meters, tag, device) != Reading::Due) continue;
    if (switchedOff && LoadFlag(meters.Device(device)->ExchangeOn) != 0 && ReadInfoOnce(meters, device) == 0) return 0;
    ServedAnswer answer;
    if (!ReadOne(meters, tag, device, answer)) return 0;
    ShareAnswer(meters, device, i, answer);
  }
  return 1;
}

}  // namespace ostrel
