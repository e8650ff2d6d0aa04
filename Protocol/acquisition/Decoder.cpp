#include "Protocol/acquisition/Decoder.h"

#include <string>

#include "Protocol/acquisition/DecodeTable.h"
#include "Protocol/acquisition/LogDecoder.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "platform/clock.h"
#include "platform/text.h"

namespace ostrel {
namespace {

/// Address, one byte of data, check.
constexpr std::uint32_t kShortestData = 5;

void FreeText(CDeviceTag& tag) {
  if (tag.Value.vt != VT_BSTR) return;
  platform::FreeString(tag.Value.bstrVal);
  tag.Value.bstrVal = nullptr;
}

// The type is stored with the value, so that a pointer is never taken for a number or the reverse, whatever type word the
// tag came with.

void Store(CDeviceTag& tag, float number) {
  tag.Value.vt = VT_R4;
  tag.Value.fltVal = number;
}

void Store(CDeviceTag& tag, const std::string& cp1251) {
  const platform::OleString text = platform::Cp1251ToOle(cp1251);
  tag.Value.vt = VT_BSTR;
  tag.Value.bstrVal = platform::AllocString(text.data(), text.size());
}

/// Clients see 1 and 0, not the -1 of VARIANT_TRUE.
void Store(CDeviceTag& tag, bool set) {
  tag.Value.vt = VT_BOOL;
  tag.Value.boolVal = set ? 1 : 0;
}

void Store(CDeviceTag& tag, std::uint8_t byte) {
  tag.Value.vt = VT_UI1;
  tag.Value.bVal = byte;
}

void Store(CDeviceTag& tag, std::int8_t byte) {
  tag.Value.vt = VT_I1;
  tag.Value.cVal = static_cast<char>(byte);
}

/// The answer is too short to hold a value. Small integers keep their last one under the bad quality.
void ShowMissing(CDeviceTag& tag) {
  if (tag.Value.vt == VT_R4) Store(tag, 0.0F);
  if (tag.Value.vt == VT_BSTR) Store(tag, std::string());
  tag.Quality = kQualityDeviceFailure;
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

void ShowAnswer(CProtocol& protocol, CDeviceTag& tag, DeviceEntry& entry) {
  const std::uint8_t* const bytes = protocol.AnswerBuffer.data();
  const VariantInfo* const variant = LearnFromAnswer(entry, protocol.VariantMap, tag.TagNumber, bytes);
  const auto value = DecodeAnswer({.bytes = bytes, .scale = ScaleOf(entry), .variant = variant}, tag.TagNumber);
  tag.Quality = value ? kQualityGood : kQualityDeviceFailure;
  if (value) std::visit([&tag](const auto& decoded) { Store(tag, decoded); }, *value);
}

}  // namespace

std::uint32_t DecodeTag(CProtocol& protocol, CDeviceTag& tag, std::uint32_t device) {
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr || protocol.HostContext == nullptr) return 0;
  const platform::CriticalSectionGuard guard(protocol.HostContext->TagLock);
  tag.Updated = 1;
  tag.Timestamp = platform::UtcFileTime();
  FreeText(tag);
  const TagKind kind = KindOf(tag.TagNumber);
  if (IsLog(kind)) {
    ShowLog(tag, *entry);
  } else if (protocol.AnswerLength < kShortestData && kind != TagKind::ConnectionState) {
    ShowMissing(tag);
  } else {
    ShowAnswer(protocol, tag, *entry);
  }
  return 1;
}

}  // namespace ostrel
