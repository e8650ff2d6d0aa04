#include "Protocol/acquisition/TagWriter.h"

#include "Protocol/acquisition/WriteCommands.h"
#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"

namespace ostrel {
namespace {

/// Busy is recognised before the check, so a busy meter leaves no message in the log.
ExchangePolicy WritePolicy(const Meters& meters) {
  return {
      .room = kStatusAnswer,
      .expectedLength = 0,
      .lowersRetryCountWhenStopped = true,
      .onClosedChannel = OnClosedChannel::OpenAccess,
      .onBusy = OnBusy::RetryBeforeCheck,
      .pauseAfterRejectedMs = meters.PauseAfterError,
      .keptLength = nullptr,
  };
}

WriteSubject MakeSubject(HostContext& context, CDeviceTag& tag, const DeviceEntry& entry) {
  const platform::CriticalSectionGuard guard(context.TagLock);
  return {
      .tagNumber = tag.TagNumber,
      .written = tag.WriteValue,
      .address = static_cast<std::uint8_t>(entry.Address),
      .meterConstant = entry.MeterConstant,
      .timeSetByte = entry.TimeSetByte,
      .now = CalendarTime::Now(),
  };
}

bool SendCommand(Meters& meters, std::uint32_t device, const WriteCommand& command) {
  std::uint8_t answer[kStatusAnswer] = {};
  const ExchangeOutcome outcome = RunExchange(meters, device, command.Bytes(), answer, WritePolicy(meters));
  const DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return false;
  ReportEvent(meters, outcome.code, entry->Address);
  UpdateLinkState(meters, device, outcome.valid);
  return outcome.valid;
}

bool IsSame(const VARIANT& left, const VARIANT& right) { return left.vt == right.vt && left.llVal == right.llVal; }

/// A write is not repeated, whether the meter took it or not. One that a client left while the command was on the line is
/// another one, and stays pending.
std::uint32_t Finish(HostContext& context, CDeviceTag& tag, const WriteSubject& sent, bool accepted) {
  const platform::CriticalSectionGuard guard(context.TagLock);
  if (IsSame(tag.WriteValue, sent.written)) StoreFlag(tag.WritePending, 0);
  return accepted ? 1 : 0;
}

}  // namespace

std::uint32_t WriteTag(Meters& meters, CDeviceTag& tag, std::uint32_t device) {
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr || meters.HostContext == nullptr) return 0;
  HostContext& context = *meters.HostContext;
  const WriteSubject subject = MakeSubject(context, tag, *entry);
  if (KindOf(tag.TagNumber) == TagKind::Exchange) {
    StoreFlag(entry->ExchangeOn, subject.written.boolVal != 0 ? 1 : 0);
    return Finish(context, tag, subject, true);
  }
  WriteCommand command;
  switch (BuildWriteCommand(subject, command)) {
    case WriteDecision::LeavePending:
      return 0;
    case WriteDecision::Drop:
      return Finish(context, tag, subject, false);
    case WriteDecision::Send:
      break;
  }
  return Finish(context, tag, subject, SendCommand(meters, device, command));
}

}  // namespace ostrel
