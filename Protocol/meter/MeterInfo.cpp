#include "Protocol/meter/MeterInfo.h"

#include <cstring>

#include "Protocol/model/DeviceEntry.h"
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

}  // namespace

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
