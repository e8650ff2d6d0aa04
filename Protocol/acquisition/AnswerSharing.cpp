#include "Protocol/acquisition/AnswerSharing.h"

#include "Protocol/acquisition/TagReader.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/TagCatalogue.h"

namespace ostrel {
namespace {

/// The answer still stands there: nothing else was asked since (a history read on a host thread may have).
bool StillStands(const Meters& meters, const ServedAnswer& answer, const CDeviceTag& tag) {
  if (answer.source == AnswerSource::LogCache) return IsLog(KindOf(tag.TagNumber));
  return answer.source == AnswerSource::Request && meters.AnswerSerial == answer.serial;
}

bool AskTheSame(const CDeviceTag& left, const CDeviceTag& right) {
  return left.TagNumber == right.TagNumber || (left.Code == right.Code && left.Param == right.Param &&
                                               left.SubParam == right.SubParam && left.RequestLength == right.RequestLength);
}

/// A log answer goes to log tags only: tag 87 carries the request fields of the first log record by accident.
bool SameFamily(const CDeviceTag& left, const CDeviceTag& right) {
  return IsLog(KindOf(left.TagNumber)) == IsLog(KindOf(right.TagNumber));
}

bool MayShare(const CDeviceTag& served, const CDeviceTag& tag) {
  return AskTheSame(served, tag) && tag.Updated == 0 && KindOf(tag.TagNumber) != TagKind::FirstLogRecord &&
         SameFamily(served, tag);
}

/// The next tag from a place on that the served one's answer serves too; `at` moves behind it. Every tag that is read looks at
/// all that follow it, so most of a pass's own work is here.
CDeviceTag* NextSharing(const HostVector<CDeviceTag*>& tags, const CDeviceTag& served, std::uint32_t& at) {
  while (at < tags.Size()) {
    CDeviceTag* const tag = tags[at++];
    if (MayShare(served, *tag)) return tag;
  }
  return nullptr;
}

}  // namespace

bool ReadOne(Meters& meters, CDeviceTag& tag, std::uint32_t device, ServedAnswer& answer) {
  const LineGuard guard(meters);
  const std::uint64_t before = meters.AnswerSerial;
  if (ReadTag(meters, &tag, Send::Request, device) == 0) return false;
  if (meters.AnswerSerial != before) {
    answer = {AnswerSource::Request, meters.AnswerSerial};
  } else if (IsLog(KindOf(tag.TagNumber))) {
    answer = {AnswerSource::LogCache, 0};
  }
  return true;
}

void ShareAnswer(Meters& meters, std::uint32_t device, std::uint32_t position, const ServedAnswer& answer) {
  if (answer.source == AnswerSource::None) return;
  const CDeviceTag& served = *meters.Device(device)->Tags[position];
  if (KindOf(served.TagNumber) == TagKind::Limit) return;
  std::uint32_t at = position + 1;
  while (CDeviceTag* const tag = NextSharing(meters.Device(device)->Tags, served, at)) {
    if (meters.Running == 0) return;
    const LineGuard guard(meters);
    if (StillStands(meters, answer, *tag)) ReadTag(meters, tag, Send::DecodeOnly, device);
  }
}

}  // namespace ostrel
