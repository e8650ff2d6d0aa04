#include "Protocol/acquisition/TagReader.h"

#include <algorithm>
#include <optional>

#include "Protocol/acquisition/Decoder.h"
#include "Protocol/acquisition/RequestBuilder.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/meter/CurrentRequest.h"
#include "Protocol/meter/MeterParameters.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"

namespace ostrel {
namespace {

void ShowNumber(CDeviceTag& tag, float number) {
  tag.Value.vt = VT_R4;
  tag.Value.fltVal = number;
  tag.Quality = kQualityGood;
}

/// Clients see 1 and 0, not the -1 of VARIANT_TRUE.
void ShowSwitch(CDeviceTag& tag, bool on) {
  tag.Value.vt = VT_BOOL;
  tag.Value.boolVal = on ? 1 : 0;
  tag.Quality = kQualityGood;
}

/// Tags that the plug-in answers from its own state, also with the meter's exchange switched off. Their timestamp stays.
bool ShowOwnState(Meters& meters, CDeviceTag& tag, DeviceEntry& entry) {
  const TagKind kind = KindOf(tag.TagNumber);
  const bool zero = kind == TagKind::TimeSetup || kind == TagKind::IndicationPeriod || kind == TagKind::ZeroCommand;
  if (!zero && kind != TagKind::LogNumber && kind != TagKind::Exchange) return false;
  const platform::CriticalSectionGuard guard(meters.HostContext->TagLock);
  if (kind == TagKind::Exchange) {
    ShowSwitch(tag, LoadFlag(entry.ExchangeOn) != 0);
  } else {
    ShowNumber(tag, zero ? 0.0F : entry.LogNumber);
  }
  return true;
}

/// A log record is read once for its four tags, and stays for later decoding.
void KeepLog(const Meters& meters, DeviceEntry& entry) {
  std::copy(meters.AnswerBuffer.begin(), meters.AnswerBuffer.end(), entry.LogCache);
  entry.LogCacheLength = meters.AnswerLength;
  entry.LogNumber = 0;
}

/// Nothing for a tag that names no month, and where the meter's clock could not be read.
std::optional<std::uint8_t> AskMonth(Meters& meters, const CDeviceTag& tag, std::uint32_t device) {
  const std::optional<WhichMonth> which = MonthAsked(tag);
  SYSTEMTIME clock{};
  if (!which || ReadMeterTime(meters, device, clock) == 0) return std::nullopt;
  return MonthSelector(*which, clock.wMonth);
}

/// Empty when the meter has gone from the table while its clock was asked.
RequestFrame RequestOf(Meters& meters, const CDeviceTag& tag, std::uint32_t device) {
  const std::optional<std::uint8_t> month = AskMonth(meters, tag, device);
  const DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return {};
  return BuildRequest(tag, {.address = entry->Address, .log = entry->LogRequest, .month = month});
}

std::uint32_t ReadFromMeter(Meters& meters, CDeviceTag& tag, std::uint32_t device) {
  const RequestFrame request = RequestOf(meters, tag, device);
  if (request.length == 0) return 1;
  const ExchangeOutcome outcome = AskCurrent(meters, device, request.Bytes(), tag.ExpectedLength);
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return 0;
  if (outcome.valid && IsLog(KindOf(tag.TagNumber))) KeepLog(meters, *entry);
  ReportEvent(meters, outcome.code, entry->Address);
  if (outcome.valid) DecodeTag(meters, tag, device);
  UpdateLinkState(meters, device, outcome.valid);
  return outcome.valid ? 1 : 0;
}

}  // namespace

std::uint32_t ReadTag(Meters& meters, CDeviceTag* tag, Send send, std::uint32_t device) {
  DeviceEntry* const entry = meters.Device(device);
  if (tag == nullptr || entry == nullptr || meters.HostContext == nullptr) return 0;
  if (ShowOwnState(meters, *tag, *entry)) return 1;
  if (LoadFlag(entry->ExchangeOn) == 0) return 1;
  const bool noLogAsked = IsLog(KindOf(tag->TagNumber)) && entry->LogRequest == 0;
  if (send == Send::DecodeOnly || noLogAsked) return DecodeTag(meters, *tag, device);
  return ReadFromMeter(meters, *tag, device);
}

}  // namespace ostrel
