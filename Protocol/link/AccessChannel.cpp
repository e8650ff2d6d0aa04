#include "Protocol/link/AccessChannel.h"

#include <array>
#include <cstring>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

constexpr std::uint8_t kOpenChannelCode = 0x01;
using OpenRequest = std::array<std::uint8_t, 2 + kPasswordSent + 2>;

/// The level is told by its password alone. Six bytes are sent as they lie in the field, its terminator included.
OpenRequest MakeOpenRequest(const DeviceEntry& entry, AccessLevel level) {
  const char* const password = level == AccessLevel::Level2 ? entry.Level2Password : entry.Level1Password;
  OpenRequest request{static_cast<std::uint8_t>(entry.Address), kOpenChannelCode};
  std::memcpy(request.data() + 2, password, kPasswordSent);
  AppendCrc(request.data(), static_cast<std::int32_t>(request.size()));
  return request;
}

ExchangePolicy OpenPolicy(const CProtocol& protocol, std::uint32_t* keptLength) {
  return {.room = kStatusAnswer,
          .expectedLength = 0,
          .lowersRetryCountWhenStopped = true,
          .onClosedChannel = OnClosedChannel::Validate,
          .onBusy = OnBusy::Validate,
          .pauseAfterRejectedMs = protocol.PauseAfterError,
          .keptLength = keptLength};
}

/// The second level stays given up until the meter is added again.
void GiveUpLevel2(CProtocol& protocol, std::uint32_t device) {
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return;
  std::memset(entry->Level2Password, 0, sizeof entry->Level2Password);
  ReportEvent(protocol, kEventLevel2Refused, entry->Address);
}

}  // namespace

std::uint32_t OpenChannel(CProtocol& protocol, std::uint32_t device, AccessLevel level, std::uint32_t* keptLength) {
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  const std::uint32_t address = entry->Address;
  const OpenRequest request = MakeOpenRequest(*entry, level);
  std::uint8_t answer[kStatusAnswer] = {};
  const ExchangeOutcome outcome = RunExchange(protocol, device, request, answer, OpenPolicy(protocol, keptLength));
  const bool granted = outcome.valid && answer[1] == kStatusOk;
  if (level == AccessLevel::Level1) ReportEvent(protocol, outcome.code, address);
  UpdateLinkState(protocol, device, granted);
  return granted ? 1 : 0;
}

std::uint32_t OpenAccess(CProtocol& protocol, std::uint32_t device) {
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  if (entry->Level2Password[0] == 0) return OpenChannel(protocol, device, AccessLevel::Level1, &protocol.AnswerLength);
  if (OpenChannel(protocol, device, AccessLevel::Level2, &protocol.AnswerLength) != 0) {
    if (DeviceEntry* const opened = protocol.Device(device)) opened->Level2Open = 1;
    return 1;
  }
  const std::uint32_t granted = OpenChannel(protocol, device, AccessLevel::Level1, &protocol.AnswerLength);
  if (granted != 0) GiveUpLevel2(protocol, device);
  return granted;
}

}  // namespace ostrel
