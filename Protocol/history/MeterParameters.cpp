#include "Protocol/history/MeterParameters.h"

#include <array>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/model/Bcd.h"
#include "Protocol/model/CalendarTime.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kClockFrame = 11;
constexpr std::uint32_t kCoefficientsFrame = 13;
constexpr std::uint32_t kPeriodFrame = 5;

/// What stands between the address and the check.
struct ParameterRequest {
  std::array<std::uint8_t, 3> body;
  std::uint8_t length;
};

constexpr ParameterRequest kClockRequest = {{0x04, 0x00}, 2};
constexpr ParameterRequest kCoefficientsRequest = {{0x08, 0x02}, 2};

/// By profile; the main one goes without a number.
constexpr ParameterRequest kPeriodRequests[] = {
    {{0x08, 0x06}, 2},
    {{0x08, 0x06, 0x01}, 3},
    {{0x08, 0x06, 0x02}, 3},
};

template <std::size_t Length>
bool Ask(CProtocol& protocol, std::uint32_t device, const ParameterRequest& request, std::array<std::uint8_t, Length>& answer) {
  const LineGuard guard(protocol);
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return false;
  std::array<std::uint8_t, 6> frame{static_cast<std::uint8_t>(entry->Address)};
  for (std::uint32_t i = 0; i < request.length; ++i) frame[i + 1] = request.body[i];
  const std::uint32_t length = request.length + 3U;
  AppendCrc(frame.data(), static_cast<std::int32_t>(length));
  return ExecuteRequest(protocol, device, frame.data(), length, answer.data(), Length) != 0;
}

WORD BcdField(std::uint8_t byte) { return static_cast<WORD>(FromBcd(byte)); }

std::int16_t Coefficient(std::uint8_t high, std::uint8_t low) { return static_cast<std::int16_t>(high * 256 + low); }

bool HasNoCoefficients(std::uint32_t meterType) { return meterType == 2 || meterType == 12; }

}  // namespace

std::uint32_t ReadMeterTime(CProtocol& protocol, std::uint32_t device, SYSTEMTIME& fields) {
  std::array<std::uint8_t, kClockFrame> answer{};
  if (!Ask(protocol, device, kClockRequest, answer)) return 0;
  fields.wSecond = BcdField(answer[1]);
  fields.wMinute = BcdField(answer[2]);
  fields.wHour = BcdField(answer[3]);
  fields.wDayOfWeek = BcdField(answer[4]);
  fields.wDay = BcdField(answer[5]);
  fields.wMonth = BcdField(answer[6]);
  fields.wYear = static_cast<WORD>(2000 + FromBcd(answer[7]));
  fields.wMilliseconds = 0;
  return 1;
}

std::uint32_t ReadTransformCoefficients(CProtocol& protocol, std::uint32_t device, std::uint32_t meterType,
                                        TransformCoefficients& coefficients) {
  if (HasNoCoefficients(meterType)) {
    coefficients = {.K1 = 1, .K2 = 1};
    return 1;
  }
  std::array<std::uint8_t, kCoefficientsFrame> answer{};
  if (!Ask(protocol, device, kCoefficientsRequest, answer)) return 0;
  coefficients = {.K1 = Coefficient(answer[1], answer[2]), .K2 = Coefficient(answer[3], answer[4])};
  return 1;
}

std::uint32_t ReadProfilePeriod(CProtocol& protocol, std::uint32_t device, Profile profile) {
  const auto index = static_cast<std::uint32_t>(profile);
  if (index >= std::size(kPeriodRequests)) return 0;
  std::array<std::uint8_t, kPeriodFrame> answer{};
  if (!Ask(protocol, device, kPeriodRequests[index], answer)) return 0;
  return answer[2];
}

}  // namespace ostrel
