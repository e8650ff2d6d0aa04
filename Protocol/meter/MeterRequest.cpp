#include "Protocol/meter/MeterRequest.h"

#include <algorithm>
#include <array>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/SharedFlag.h"

namespace ostrel {
namespace {

constexpr std::size_t kLongestBody = 16;
constexpr std::size_t kAddressAndCheck = 3;

}  // namespace

// The table's lock for records alone: the line may be held for as long as a silent meter is asked.
std::optional<MeterState> LookAtMeter(Meters& meters, std::uint32_t device) {
  const platform::CriticalSectionGuard guard(meters.ProfileDataLock);
  DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return std::nullopt;
  return MeterState{.meter = {.device = device, .address = entry->Address}, .exchangeOn = LoadFlag(entry->ExchangeOn) != 0};
}

DeviceEntry* FindMeter(Meters& meters, const MeterRef& meter) {
  DeviceEntry* const entry = meters.Device(meter.device);
  return entry != nullptr && entry->Address == meter.address ? entry : nullptr;
}

bool AskMeter(Meters& meters, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer) {
  std::uint32_t meterConstant = 0;
  return AskMeter(meters, meter, body, answer, meterConstant);
}

bool AskMeter(Meters& meters, const MeterRef& meter, std::span<const std::uint8_t> body, std::span<std::uint8_t> answer,
              std::uint32_t& meterConstant) {
  if (body.size() > kLongestBody) return false;
  std::array<std::uint8_t, kLongestBody + kAddressAndCheck> frame{};
  const std::size_t length = body.size() + kAddressAndCheck;
  frame[0] = static_cast<std::uint8_t>(meter.address);
  std::ranges::copy(body, frame.begin() + 1);
  AppendCrc(frame.data(), static_cast<std::int32_t>(length));
  TransactionOutcome outcome;
  {
    const LineGuard guard(meters);
    if (FindMeter(meters, meter) == nullptr) return false;
    outcome = RunTransaction(meters, meter.device, std::span(frame).first(length), answer);
    const DeviceEntry* const entry = FindMeter(meters, meter);
    if (entry != nullptr) meterConstant = entry->MeterConstant;
    outcome.valid = outcome.valid && entry != nullptr;
  }
  ReportTransaction(meters, outcome);
  return outcome.valid;
}

}  // namespace ostrel
