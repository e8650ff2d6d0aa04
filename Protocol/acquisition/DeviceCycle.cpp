// One meter's turn in a poll pass.
#include "Protocol/acquisition/DeviceCycle.h"

#include "Protocol/acquisition/ClockCorrection.h"
#include "Protocol/acquisition/TagMarking.h"
#include "Protocol/acquisition/TagReader.h"
#include "Protocol/acquisition/TagWriter.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "platform/clock.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kPauseBeforeClockMs = 200;

bool IsPowerP(std::uint32_t number) {
  return number == kTagPowerPPhase1 || number == kTagPowerPPhase2 || number == kTagPowerPPhase3 || number == kTagPowerPSum;
}

/// Reserved entries of the catalogue and the clock-setting command have no read request. The powers P carry the same zeros
/// and are real readings.
bool HasNoReading(const CDeviceTag& tag) {
  return !IsPowerP(tag.TagNumber) && ((tag.Code == 0 && tag.Param == 0) || tag.TagNumber == kTagTimeSetup);
}

bool SharesNoAnswer(std::uint32_t number) { return number >= kTagFirstLimit && number <= kTagLastLimit; }

bool IsFirstLogRecord(std::uint32_t number) { return number >= kTagFirstLog && number <= kTagLastFirstLogRecord; }

bool AskTheSame(const CDeviceTag& left, const CDeviceTag& right) {
  return left.TagNumber == right.TagNumber || (left.Code == right.Code && left.Param == right.Param &&
                                               left.SubParam == right.SubParam && left.RequestLength == right.RequestLength);
}

void Write(CProtocol& protocol, CDeviceTag& tag, std::uint32_t device) {
  const LineGuard guard(protocol);
  WriteTag(protocol, tag, device);
}

bool WritePending(CDeviceTag& tag) { return LoadFlag(tag.WritePending) != 0; }

/// Writes of "Indication Period Setup" and "Time Correction" are carried out whatever the quality; any other one waits until
/// its tag was read well, so that nothing is written to a meter that does not answer.
bool WriteIsDue(CDeviceTag& tag) {
  return WritePending(tag) && (tag.Quality == kQualityGood || tag.TagNumber == kTagTimeCorrection);
}

/// Where the answer that a tag was just decoded from stands, so that tags that ask the same may be decoded from it.
enum class AnswerSource : std::uint8_t { None, Request, LogCache };

struct ServedAnswer {
  AnswerSource source = AnswerSource::None;
  std::uint64_t serial = 0;
};

/// The answer still stands there: nothing else was asked since (a history read on a host thread may have).
bool StillStands(const CProtocol& protocol, const ServedAnswer& answer, const CDeviceTag& tag) {
  if (answer.source == AnswerSource::LogCache) return IsLog(KindOf(tag.TagNumber));
  return answer.source == AnswerSource::Request && protocol.AnswerSerial == answer.serial;
}

/// Reads the tag with its own request; false when the meter did not answer.
bool ReadOne(CProtocol& protocol, CDeviceTag& tag, std::uint32_t device, ServedAnswer& answer) {
  const LineGuard guard(protocol);
  const std::uint64_t before = protocol.AnswerSerial;
  if (ReadTag(protocol, &tag, Send::Request, device) == 0) return false;
  if (protocol.AnswerSerial != before) {
    answer = {AnswerSource::Request, protocol.AnswerSerial};
  } else if (IsLog(KindOf(tag.TagNumber))) {
    answer = {AnswerSource::LogCache, 0};
  }
  return true;
}

/// A log answer goes to log tags only: tag 87 carries the request fields of the first log record by accident.
bool SameFamily(const CDeviceTag& left, const CDeviceTag& right) {
  return IsLog(KindOf(left.TagNumber)) == IsLog(KindOf(right.TagNumber));
}

void ShareAnswer(CProtocol& protocol, std::uint32_t device, std::uint32_t position, const ServedAnswer& answer) {
  if (answer.source == AnswerSource::None) return;
  const CDeviceTag& served = *protocol.Device(device)->Tags[position];
  for (std::uint32_t i = position + 1; i < protocol.Device(device)->Tags.Size() && protocol.Running != 0; ++i) {
    CDeviceTag& tag = *protocol.Device(device)->Tags[i];
    if (tag.Updated != 0 || IsFirstLogRecord(tag.TagNumber) || !AskTheSame(served, tag) || !SameFamily(served, tag)) continue;
    const LineGuard guard(protocol);
    if (StillStands(protocol, answer, tag)) ReadTag(protocol, &tag, Send::DecodeOnly, device);
  }
}

/// What comes before the reading of a tag: pending writes and tags that need none. True when the tag is done with.
bool ServeWithoutReading(CProtocol& protocol, CDeviceTag& tag, std::uint32_t device) {
  if (tag.TagNumber == kTagIndicationPeriod) {
    ShowZero(tag);
    if (WritePending(tag)) Write(protocol, tag, device);
    return true;
  }
  if (tag.Updated != 0 && !(WritePending(tag) && tag.Quality == kQualityGood)) return true;
  if (tag.TagNumber == kTagTimeCorrection) ShowZero(tag);
  if (WriteIsDue(tag)) Write(protocol, tag, device);
  if (HasNoReading(tag)) {
    ShowZero(tag);
    return true;
  }
  return tag.TagNumber == kTagTimeCorrection;
}

/// Coefficients first, since the variant's reading scales with them. Meters of types 2 and 12 have none.
constexpr std::uint32_t kInfoTags[] = {kTagVoltageCoefficient, kTagCurrentCoefficient, kTagMeterType};

bool HasCoefficients(std::uint32_t typeId) { return typeId != 2 && typeId != 12; }

/// The number behind the three letters of a port name: 12 for COM12.
std::uint32_t PortNumber(const char* name) {
  std::uint32_t number = 0;
  for (int i = 0; name[i] != 0; ++i) {
    if (i < 3) continue;
    if (name[i] < '0' || name[i] > '9') break;
    number = number * 10 + static_cast<std::uint32_t>(name[i] - '0');
  }
  return number;
}

void FillInfoTag(CProtocol& protocol, CDeviceTag& tag, std::uint32_t number, std::uint32_t address) {
  TagDescriptor row{};
  static_cast<IBrowser&>(protocol).GetTagDescriptor(number, kBranchDa, 0, &row.DataType);
  tag.PortNumber = PortNumber(protocol.Channel.PortName);
  tag.DeviceAddress = address;
  tag.TagNumber = number;
  tag.CanonicalType = static_cast<std::uint16_t>(row.DataType);
  tag.Value.vt = static_cast<VARTYPE>(row.DataType);
  tag.Code = row.Code;
  tag.Param = row.Param;
  tag.SubParam = row.SubParam;
  tag.RequestLength = row.RequestLength;
  tag.WriteLength = row.WriteLength;
  tag.WriteParam = row.WriteParam;
  tag.ExpectedLength = row.ExpectedLength;
}

/// A short-lived tag on the stack of the one-time reading.
class InfoTag final : public CDeviceTag {};

bool ReadInfoTag(CProtocol& protocol, std::uint32_t device, std::uint32_t number) {
  const LineGuard guard(protocol);
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return false;
  InfoTag tag;
  FillInfoTag(protocol, tag, number, entry->Address);
  return ReadTag(protocol, &tag, Send::Request, device) != 0;
}

/// Neutral factors, so that nothing is scaled by what another connection read.
void ForgetScaling(DeviceEntry& entry) {
  entry.VoltageFactor = 1.0F;
  entry.CurrentFactor = 1.0F;
  entry.VariantBytes[2] &= 0x0F;
  entry.VariantBytes[0] &= 0xF0;
}

/// The clock's turn; false when it could not be read.
bool CheckClock(CProtocol& protocol, std::uint32_t device) {
  const LineGuard guard(protocol);
  if (LoadFlag(protocol.Device(device)->ExchangeOn) == 0) return true;
  std::uint8_t answer[kClockAnswer] = {};
  if (ReadMeterClock(protocol, device, answer) == 0) return false;
  DeviceEntry& entry = *protocol.Device(device);
  // A check that is not forced can wait until the clock is unambiguous again; it stays due.
  if (entry.ForceClockCheck == 0 && ShowsRepeatedHour(answer)) return true;
  ClockSetting setting{};
  if (CompareClock(protocol, entry, answer, setting) != 0) CorrectMeterClock(protocol, device, setting);
  return true;
}

bool ReadInfoOnce(CProtocol& protocol, std::uint32_t device) {
  DeviceEntry* entry = protocol.Device(device);
  if (LoadFlag(entry->InfoRead) != 0 || LoadFlag(entry->ExchangeOn) == 0) return true;
  if (ReadDeviceInfo(protocol, device) == 0) return false;
  StoreFlag(protocol.Device(device)->InfoRead, 1);
  return true;
}

}  // namespace

std::uint32_t AnyTagInUse(CProtocol& protocol, std::uint32_t device) {
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  for (const CDeviceTag* tag : entry->Tags) {
    if (tag->InUse() != 0) return 1;
  }
  return 0;
}

void ClearUpdated(CProtocol& protocol, std::uint32_t device) {
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return;
  for (CDeviceTag* tag : entry->Tags) tag->Updated = 0;
}

std::uint32_t ServeTags(CProtocol& protocol, std::uint32_t device) {
  for (std::uint32_t i = 0; i < protocol.Device(device)->Tags.Size(); ++i) {
    CDeviceTag& tag = *protocol.Device(device)->Tags[i];
    if (tag.InUse() == 0) continue;
    if (protocol.Running == 0) return 1;
    if (ServeWithoutReading(protocol, tag, device)) continue;
    ServedAnswer answer;
    if (!ReadOne(protocol, tag, device, answer)) return 0;
    if (!SharesNoAnswer(tag.TagNumber)) ShareAnswer(protocol, device, i, answer);
  }
  return 1;
}

std::uint32_t ReadDeviceInfo(CProtocol& protocol, std::uint32_t device) {
  bool coefficients = true;
  {
    const LineGuard guard(protocol);
    DeviceEntry* const entry = protocol.Device(device);
    if (entry == nullptr) return 0;
    coefficients = HasCoefficients(entry->TypeId);
    ForgetScaling(*entry);
  }
  for (const std::uint32_t number : kInfoTags) {
    if (number != kTagMeterType && !coefficients) continue;
    if (!ReadInfoTag(protocol, device, number)) return 0;
  }
  return 1;
}

std::uint32_t RunDeviceCycle(CProtocol& protocol, std::uint32_t device) {
  if (AnyTagInUse(protocol, device) == 0) return 1;
  if (protocol.CanPollDevice(device) == 0) return 1;
  platform::Sleep(protocol.PauseAfterError);
  {
    const LineGuard guard(protocol);
    ClearUpdated(protocol, device);
  }
  if (!ReadInfoOnce(protocol, device)) return 0;
  if (ServeTags(protocol, device) == 0) return 0;
  platform::Sleep(kPauseBeforeClockMs);
  if (!CheckClock(protocol, device)) return 0;
  protocol.Device(device)->ForceClockCheck = 0;
  return 1;
}

}  // namespace ostrel
