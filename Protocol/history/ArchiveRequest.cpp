#include "Protocol/history/ArchiveRequest.h"

#include <algorithm>
#include <array>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/model/SharedFlag.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

constexpr std::size_t kLongestBody = 16;
constexpr std::size_t kAddressAndCheck = 3;

}  // namespace

// The table's lock for records alone: the line may be held for as long as a silent meter is asked.
std::optional<MeterState> LookAtMeter(CProtocol& protocol, std::uint32_t device) {
  const platform::CriticalSectionGuard guard(protocol.ProfileDataLock);
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return std::nullopt;
  return MeterState{.meter = {.device = device, .address = entry->Address},
                    .exchangeOn = LoadFlag(entry->ExchangeOn) != 0,
                    .infoRead = LoadFlag(entry->InfoRead) != 0};
}

DeviceEntry* FindMeter(CProtocol& protocol, const MeterRef& meter) {
  DeviceEntry* const entry = protocol.Device(meter.device);
  return entry != nullptr && entry->Address == meter.address ? entry : nullptr;
}

bool AskMeter(CProtocol& protocol, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer) {
  std::uint32_t meterConstant = 0;
  return AskMeter(protocol, meter, body, answer, meterConstant);
}

bool AskMeter(CProtocol& protocol, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer,
              std::uint32_t& meterConstant) {
  if (body.size() > kLongestBody) return false;
  std::array<std::uint8_t, kLongestBody + kAddressAndCheck> frame{};
  const std::size_t length = body.size() + kAddressAndCheck;
  frame[0] = static_cast<std::uint8_t>(meter.address);
  std::ranges::copy(body, frame.begin() + 1);
  AppendCrc(frame.data(), static_cast<std::int32_t>(length));
  TransactionOutcome outcome;
  {
    const LineGuard guard(protocol);
    if (FindMeter(protocol, meter) == nullptr) return false;
    outcome = RunTransaction(protocol, meter.device, std::span(frame).first(length), answer);
    const DeviceEntry* const entry = FindMeter(protocol, meter);
    if (entry != nullptr) meterConstant = entry->MeterConstant;
    outcome.valid = outcome.valid && entry != nullptr;
  }
  ReportTransaction(protocol, outcome);
  return outcome.valid;
}

}  // namespace ostrel
