#include "Protocol/meter/MeterParameters.h"

#include <array>

#include "Protocol/meter/MeterInfo.h"
#include "Protocol/meter/MeterRequest.h"
#include "Protocol/model/Bcd.h"

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
bool Ask(Meters& meters, std::uint32_t device, const ParameterRequest& request, std::array<std::uint8_t, Length>& answer) {
  const auto state = LookAtMeter(meters, device);
  return state && AskMeter(meters, state->meter, std::span(request.body).first(request.length), answer);
}

WORD BcdField(std::uint8_t byte) { return static_cast<WORD>(FromBcd(byte)); }

std::int16_t Coefficient(std::uint8_t high, std::uint8_t low) { return static_cast<std::int16_t>(high * 256 + low); }

}  // namespace

std::uint32_t ReadMeterTime(Meters& meters, std::uint32_t device, SYSTEMTIME& fields) {
  std::array<std::uint8_t, kClockFrame> answer{};
  if (!Ask(meters, device, kClockRequest, answer)) return 0;
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

std::uint32_t ReadTransformCoefficients(Meters& meters, std::uint32_t device, std::uint32_t meterType,
                                        TransformCoefficients& coefficients) {
  if (!HasCoefficients(meterType)) {
    coefficients = {.K1 = 1, .K2 = 1};
    return 1;
  }
  std::array<std::uint8_t, kCoefficientsFrame> answer{};
  if (!Ask(meters, device, kCoefficientsRequest, answer)) return 0;
  coefficients = {.K1 = Coefficient(answer[1], answer[2]), .K2 = Coefficient(answer[3], answer[4])};
  return 1;
}

std::uint32_t ReadProfilePeriod(Meters& meters, std::uint32_t device, Profile profile) {
  const auto index = static_cast<std::uint32_t>(profile);
  if (index >= std::size(kPeriodRequests)) return 0;
  std::array<std::uint8_t, kPeriodFrame> answer{};
  if (!Ask(meters, device, kPeriodRequests[index], answer)) return 0;
  return answer[2];
}

}  // namespace ostrel
