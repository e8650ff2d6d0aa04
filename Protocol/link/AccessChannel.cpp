#include "Protocol/link/AccessChannel.h"

#include <array>
#include <cstring>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/Line.h"
#include "Protocol/link/LinkState.h"

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

ExchangePolicy OpenPolicy(const Line& line, std::uint32_t* keptLength) {
  return {.room = kStatusAnswer,
          .expectedLength = 0,
          .lowersRetryCountWhenStopped = true,
          .onClosedChannel = OnClosedChannel::Validate,
          .onBusy = OnBusy::Validate,
          .pauseAfterRejectedMs = line.PauseAfterError,
          .keptLength = keptLength};
}

/// The second level stays given up until the meter is added again.
void GiveUpLevel2(Line& line, std::uint32_t device) {
  DeviceEntry* const entry = line.Device(device);
  if (entry == nullptr) return;
  std::memset(entry->Level2Password, 0, sizeof entry->Level2Password);
  ReportEvent(line, kEventLevel2Refused, entry->Address);
}

}  // namespace

std::uint32_t OpenChannel(Line& line, std::uint32_t device, AccessLevel level, std::uint32_t* keptLength) {
  const DeviceEntry* const entry = line.Device(device);
  if (entry == nullptr) return 0;
  const std::uint32_t address = entry->Address;
  const OpenRequest request = MakeOpenRequest(*entry, level);
  std::uint8_t answer[kStatusAnswer] = {};
  const ExchangeOutcome outcome = RunExchange(line, device, request, answer, OpenPolicy(line, keptLength));
  const bool granted = outcome.valid && answer[1] == kStatusOk;
  if (level == AccessLevel::Level1) ReportEvent(line, outcome.code, address);
  UpdateLinkState(line, device, granted);
  return granted ? 1 : 0;
}

std::uint32_t OpenAccess(Line& line, std::uint32_t device) {
  const DeviceEntry* const entry = line.Device(device);
  if (entry == nullptr) return 0;
  if (entry->Level2Password[0] == 0) return OpenChannel(line, device, AccessLevel::Level1, &line.AnswerLength);
  if (OpenChannel(line, device, AccessLevel::Level2, &line.AnswerLength) != 0) {
    if (DeviceEntry* const opened = line.Device(device)) opened->Level2Open = 1;
    return 1;
  }
  const std::uint32_t granted = OpenChannel(line, device, AccessLevel::Level1, &line.AnswerLength);
  if (granted != 0) GiveUpLevel2(line, device);
  return granted;
}

}  // namespace ostrel
