#include "Protocol/meter/MeterInfo.h"

#include <cstring>

#include "Protocol/link/Frame.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/meter/CurrentRequest.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/Guarded.h"
#include "Protocol/model/TagCatalogue.h"

namespace ostrel {
namespace {

constexpr std::size_t kCoefficientBytes = 4;

float TransformCoefficient(const std::uint8_t* highFirst) { return static_cast<float>(highFirst[0] << 8 | highFirst[1]); }

void LearnCoefficient(DeviceEntry& entry, std::uint32_t tagNumber, const std::uint8_t* answer) {
  std::memcpy(entry.CoefficientBytes, answer + 1, kCoefficientBytes);
  if (tagNumber == kTagVoltageCoefficient) {
    entry.VoltageFactor = TransformCoefficient(answer + 1);
  } else {
    entry.CurrentFactor = TransformCoefficient(answer + 3);
  }
}

const VariantInfo& LearnVariant(DeviceEntry& entry, std::map<VariantKey, VariantInfo>& variants, const std::uint8_t* answer) {
  std::memcpy(entry.VariantBytes, answer + 1, sizeof entry.VariantBytes);
  const VariantInfo& info = variants[MakeVariantKey(entry.VariantBytes)];
  entry.MeterConstant = static_cast<std::uint32_t>(info.Constant);
  entry.PowerScale = static_cast<float>(info.PowerScale);
  return info;
}

/// Coefficients first, since the variant's reading scales with them.
constexpr std::uint32_t kInfoTags[] = {kTagVoltageCoefficient, kTagCurrentCoefficient, kTagMeterType};

/// Neutral factors, so that nothing is scaled by what another connection read.
void ForgetScaling(DeviceEntry& entry) {
  entry.VoltageFactor = 1.0F;
  entry.CurrentFactor = 1.0F;
  entry.VariantBytes[2] &= 0x0F;
  entry.VariantBytes[0] &= 0xF0;
}

/// The caller holds the line. A meter that was switched off meanwhile is left alone.
bool ReadInfo(Meters& meters, std::uint32_t device, std::uint32_t tagNumber) {
  DeviceEntry* entry = meters.Device(device);
  if (entry == nullptr) return false;
  if (LoadFlag(entry->ExchangeOn) == 0) return true;
  const TagDescriptor& row = TagDescriptors()[tagNumber];
  std::uint8_t request[] = {static_cast<std::uint8_t>(entry->Address), static_cast<std::uint8_t>(row.Code),
                            static_cast<std::uint8_t>(row.Param), 0, 0};
  AppendCrc(request, sizeof request);
  const ExchangeOutcome outcome = AskCurrent(meters, device, request, row.ExpectedLength);
  entry = meters.Device(device);
  if (entry == nullptr) return false;
  ReportEvent(meters, outcome.code, entry->Address);
  if (outcome.valid && meters.AnswerLength >= kShortestData) {
    LearnFromAnswer(*entry, meters.VariantMap, tagNumber, meters.AnswerBuffer.data());
  }
  UpdateLinkState(meters, device, outcome.valid);
  return outcome.valid;
}

}  // namespace

std::uint32_t ReadDeviceInfo(Meters& meters, std::uint32_t device) {
  const LineGuard guard(meters);
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return 0;
  const bool coefficients = HasCoefficients(entry->TypeId);
  ForgetScaling(*entry);
  for (const std::uint32_t tagNumber : kInfoTags) {
    if (tagNumber != kTagMeterType && !coefficients) continue;
    if (!ReadInfo(meters, device, tagNumber)) return 0;
  }
  return 1;
}

std::uint32_t ReadInfoOnce(Meters& meters, std::uint32_t device) {
  const LineGuard guard(meters);
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return 0;
  if (LoadFlag(entry->InfoRead) != 0) return 1;
  if (LoadFlag(entry->ExchangeOn) == 0) return 0;
  if (Guarded(0U, [&] { return ReadDeviceInfo(meters, device); }) == 0) return 0;
  StoreFlag(meters.Device(device)->InfoRead, 1);  // in the same hold nobody has changed the table
  return 1;
}

const VariantInfo* LearnFromAnswer(DeviceEntry& entry, std::map<VariantKey, VariantInfo>& variants, std::uint32_t tagNumber,
                                   const std::uint8_t* answer) {
  switch (tagNumber) {
    case kTagVoltageCoefficient:
    case kTagCurrentCoefficient:
      LearnCoefficient(entry, tagNumber, answer);
      return nullptr;
    case kTagMeterConstant:
    case kTagMeterType:
      return &LearnVariant(entry, variants, answer);
    default:
      return nullptr;
  }
}

}  // namespace ostrel
