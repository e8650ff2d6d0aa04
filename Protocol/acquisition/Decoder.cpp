#include "Protocol/acquisition/Decoder.h"

#include <new>
#include <string>

#include "Protocol/acquisition/DecodeTable.h"
#include "Protocol/acquisition/LogDecoder.h"
#include "Protocol/meter/CurrentRequest.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/clock.h"
#include "platform/text.h"

namespace ostrel {
namespace {

void FreeText(CDeviceTag& tag) {
  if (tag.Value.vt != VT_BSTR) return;
  platform::FreeString(tag.Value.bstrVal);
  tag.Value.bstrVal = nullptr;
}

bool ShowsText(const CDeviceTag& tag, const std::string& cp1251) {
  if (tag.Value.vt != VT_BSTR || tag.Value.bstrVal == nullptr) return false;
  return platform::SameTextAsCp1251({tag.Value.bstrVal, platform::StringLength(tag.Value.bstrVal)}, cp1251);
}

// The type is stored with the value, so that a pointer is never taken for a number or the reverse, whatever type word the
// tag came with.

void Store(CDeviceTag& tag, float number) {
  FreeText(tag);
  tag.Value.vt = VT_R4;
  tag.Value.fltVal = number;
}

/// A text that stays the same stays where it is.
void Store(CDeviceTag& tag, const std::string& cp1251) {
  if (ShowsText(tag, cp1251)) return;
  FreeText(tag);
  const platform::OleString text = platform::Cp1251ToOle(cp1251);
  tag.Value.vt = VT_BSTR;
  tag.Value.bstrVal = platform::AllocString(text.data(), text.size());
  if (tag.Value.bstrVal == nullptr) throw std::bad_alloc();  // an empty text would look like the meter's
}

/// Clients see 1 and 0, not the -1 of VARIANT_TRUE.
void Store(CDeviceTag& tag, bool set) {
  FreeText(tag);
  tag.Value.vt = VT_BOOL;
  tag.Value.boolVal = set ? 1 : 0;
}

void Store(CDeviceTag& tag, std::uint8_t byte) {
  FreeText(tag);
  tag.Value.vt = VT_UI1;
  tag.Value.bVal = byte;
}

void Store(CDeviceTag& tag, std::int8_t byte) {
  FreeText(tag);
  tag.Value.vt = VT_I1;
  tag.Value.cVal = static_cast<char>(byte);
}

/// The answer is too short to hold a value. Small integers keep their last one under the bad quality.
void ShowMissing(CDeviceTag& tag) {
  if (tag.Value.vt == VT_R4) Store(tag, 0.0F);
  if (tag.Value.vt == VT_BSTR) Store(tag, std::string());
}

void ShowLog(CDeviceTag& tag, const DeviceEntry& entry) {
  const LogText log = DecodeLog(entry, tag);
  Store(tag, log.text);
  tag.Quality = log.quality;
}

MeterScale ScaleOf(const DeviceEntry& entry) {
  return {.voltageFactor = entry.VoltageFactor,
          .currentFactor = entry.CurrentFactor,
          .powerScale = entry.PowerScale,
          .constant = entry.MeterConstant};
}

void ShowAnswer(Meters& meters, CDeviceTag& tag, DeviceEntry& entry) {
  const std::uint8_t* const bytes = meters.AnswerBuffer.data();
  const VariantInfo* const variant = LearnFromAnswer(entry, meters.VariantMap, tag.TagNumber, bytes);
  const auto value = DecodeAnswer({.bytes = bytes, .scale = ScaleOf(entry), .variant = variant}, tag.TagNumber);
  if (!value) return FreeText(tag);
  std::visit([&tag](const auto& decoded) { Store(tag, decoded); }, *value);
  tag.Quality = kQualityGood;
}

}  // namespace

std::uint32_t DecodeTag(Meters& meters, CDeviceTag& tag, std::uint32_t device) {
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr || meters.HostContext == nullptr) return 0;
  const platform::CriticalSectionGuard guard(meters.HostContext->TagLock);
  tag.Updated = 1;
  tag.Timestamp = platform::UtcFileTime();
  // Until there is a value; it stays so when memory is too short for one.
  tag.Quality = kQualityDeviceFailure;
  const TagKind kind = KindOf(tag.TagNumber);
  if (IsLog(kind)) {
    ShowLog(tag, *entry);
  } else if (meters.AnswerLength < kShortestData && kind != TagKind::ConnectionState) {
    ShowMissing(tag);
  } else {
    ShowAnswer(meters, tag, *entry);
  }
  return 1;
}

}  // namespace ostrel
