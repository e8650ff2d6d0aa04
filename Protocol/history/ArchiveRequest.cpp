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

std::optional<MeterState> LookAtMeter(CProtocol& protocol, std::uint32_t device) {
  const LineGuard guard(protocol);
  DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return std::nullopt;
  return MeterState{.meter = {.device = device, .address = entry->Address}, .exchangeOn = LoadFlag(entry->ExchangeOn) != 0};
}

DeviceEntry* FindMeter(CProtocol& protocol, const MeterRef& meter) {
  DeviceEntry* const entry = protocol.Device(meter.device);
  return entry != nullptr && entry->Address == meter.address ? entry : nullptr;
}

bool AskMeter(CProtocol& protocol, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer) {
  const LineGuard guard(protocol);
  if (FindMeter(protocol, meter) == nullptr || body.size() > kLongestBody) return false;
  std::array<std::uint8_t, kLongestBody + kAddressAndCheck> frame{};
  const std::size_t length = body.size() + kAddressAndCheck;
  frame[0] = static_cast<std::uint8_t>(meter.address);
  std::ranges::copy(body, frame.begin() + 1);
  AppendCrc(frame.data(), static_cast<std::int32_t>(length));
  return ExecuteRequest(protocol, meter.device, frame.data(), static_cast<std::uint32_t>(length), answer.data(),
                        static_cast<std::uint32_t>(answer.size())) != 0;
}

bool AskMeter(CProtocol& protocol, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer,
              std::uint32_t& meterConstant) {
  const LineGuard guard(protocol);
  const bool answered = AskMeter(protocol, meter, body, answer);
  const DeviceEntry* const entry = FindMeter(protocol, meter);
  if (entry != nullptr) meterConstant = entry->MeterConstant;
  return answered && entry != nullptr;
}

}  // namespace ostrel
