#include "Protocol/acquisition/TagReader.h"

#include <algorithm>
#include <optional>

#include "Protocol/acquisition/Decoder.h"
#include "Protocol/acquisition/RequestBuilder.h"
#include "Protocol/history/MeterParameters.h"
#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"

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
bool ShowOwnState(CProtocol& protocol, CDeviceTag& tag, DeviceEntry& entry) {
  const platform::CriticalSectionGuard guard(protocol.HostContext->TagLock);
  switch (KindOf(tag.TagNumber)) {
    case TagKind::LogNumber:
      ShowNumber(tag, entry.LogNumber);
      return true;
    case TagKind::TimeSetup:
    case TagKind::IndicationPeriod:
    case TagKind::ZeroCommand:
      ShowNumber(tag, 0.0F);
      return true;
    case TagKind::Exchange:
      ShowSwitch(tag, LoadFlag(entry.ExchangeOn) != 0);
      return true;
    default:
      return false;
  }
}

/// A log record is read once for its four tags, and stays for later decoding.
void KeepLog(const CProtocol& protocol, DeviceEntry& entry) {
  std::copy(protocol.AnswerBuffer.begin(), protocol.AnswerBuffer.end(), entry.LogCache);
  entry.LogCacheLength = protocol.AnswerLength;
  entry.LogNumber = 0;
}

/// Answers are asked for at full room whatever their length: several kinds have none that is known beforehand.
ExchangePolicy ReadPolicy(CProtocol& protocol, const CDeviceTag& tag) {
  return {
      .room = kMaxAnswer,
      .expectedLength = tag.ExpectedLength,
      .lowersRetryCountWhenStopped = true,
      .onClosedChannel = OnClosedChannel::OpenAccess,
      .onBusy = OnBusy::RetryAfterCheck,
      .pauseAfterRejectedMs = protocol.PauseAfterError,
      .keptLength = &protocol.AnswerLength,
  };
}

ExchangeOutcome Ask(CProtocol& protocol, const CDeviceTag& tag, std::uint32_t device, const RequestFrame& request) {
  ++protocol.AnswerSerial;
  protocol.AnswerBuffer.fill(0);
  protocol.AnswerLength = 0;
  return RunExchange(protocol, device, request.Bytes(), protocol.AnswerBuffer.data(), ReadPolicy(protocol, tag));
}

/// Nothing for a tag that names no month, and where the meter's clock could not be read.
std::optional<std::uint8_t> AskMonth(CProtocol& protocol, const CDeviceTag& tag, std::uint32_t device) {
  const std::optional<WhichMonth> which = MonthAsked(tag);
  SYSTEMTIME clock{};
  if (!which || ReadMeterTime(protocol, device, clock) == 0) return std::nullopt;
  return MonthSelector(*which, clock.wMonth);
}

/// Empty when the meter has gone from the table while its clock was asked.
RequestFrame RequestOf(CProtocol& protocol, const CDeviceTag& tag, std::uint32_t device) {
  const std::optional<std::uint8_t> month = AskMonth(protocol, tag, device);
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return {};
  return BuildRequest(tag, {.address = entry->Address, .log = entry->LogRequest, .month = month});
}

std::uint32_t ReadFromMeter(CProtocol& protocol, CDeviceTag& tag, std::uint32_t device) {
  const RequestFrame request = RequestOf(protocol, tag, device);
  if (request.length == 0) return 1;
  const ExchangeOutcome outcome = Ask(protocol, tag, device, request);
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  if (outcome.valid && IsLog(KindOf(tag.TagNumber))) KeepLog(protocol, *entry);
  ReportEvent(protocol, outcome.code, entry->Address);
  if (outcome.valid) DecodeTag(protocol, tag, device);
  UpdateLinkState(protocol, device, outcome.valid);
  return outcome.valid ? 1 : 0;
}

}  // namespace

std::uint32_t ReadTag(CProtocol& protocol, CDeviceTag* tag, Send send, std::uint32_t device) {
  DeviceEntry* const entry = protocol.Device(device);
  if (tag == nullptr || entry == nullptr || protocol.HostContext == nullptr) return 0;
  if (ShowOwnState(protocol, *tag, *entry)) return 1;
  if (LoadFlag(entry->ExchangeOn) == 0) return 1;
  const bool noLogAsked = IsLog(KindOf(tag->TagNumber)) && entry->LogRequest == 0;
  if (send == Send::DecodeOnly || noLogAsked) return DecodeTag(protocol, *tag, device);
  return ReadFromMeter(protocol, *tag, device);
}

}  // namespace ostrel
