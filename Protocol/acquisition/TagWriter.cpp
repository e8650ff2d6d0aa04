#include "Protocol/acquisition/TagWriter.h"

#include "Protocol/acquisition/WriteCommands.h"
#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

/// Busy is recognised before the check, so a busy meter leaves no message in the log.
ExchangePolicy WritePolicy(const CProtocol& protocol) {
  return {
      .room = kStatusAnswer,
      .expectedLength = 0,
      .lowersRetryCountWhenStopped = true,
      .onClosedChannel = OnClosedChannel::OpenAccess,
      .onBusy = OnBusy::RetryBeforeCheck,
      .pauseAfterRejectedMs = protocol.PauseAfterError,
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

bool SendCommand(CProtocol& protocol, std::uint32_t device, const WriteCommand& command) {
  std::uint8_t answer[kStatusAnswer] = {};
  const ExchangeOutcome outcome = RunExchange(protocol, device, command.Bytes(), answer, WritePolicy(protocol));
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return false;
  ReportEvent(protocol, outcome.code, entry->Address);
  UpdateLinkState(protocol, device, outcome.valid);
  return outcome.valid;
}

/// A write is not repeated, whether the meter took it or not.
std::uint32_t Finish(CDeviceTag& tag, bool accepted) {
  StoreFlag(tag.WritePending, 0);
  return accepted ? 1 : 0;
}

}  // namespace

std::uint32_t WriteTag(CProtocol& protocol, CDeviceTag& tag, std::uint32_t device) {
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr || protocol.HostContext == nullptr) return 0;
  const WriteSubject subject = MakeSubject(*protocol.HostContext, tag, *entry);
  if (KindOf(tag.TagNumber) == TagKind::Exchange) {
    StoreFlag(entry->ExchangeOn, subject.written.boolVal != 0 ? 1 : 0);
    return Finish(tag, true);
  }
  WriteCommand command;
  switch (BuildWriteCommand(subject, command)) {
    case WriteDecision::LeavePending:
      return 0;
    case WriteDecision::Drop:
      return Finish(tag, false);
    case WriteDecision::Send:
      break;
  }
  return Finish(tag, SendCommand(protocol, device, command));
}

}  // namespace ostrel
