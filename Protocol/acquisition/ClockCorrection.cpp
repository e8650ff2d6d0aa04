#include "Protocol/acquisition/ClockCorrection.h"

#include <optional>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/model/Bcd.h"
#include "Protocol/model/CalendarTime.h"
#include "Protocol/model/DeviceEntry.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kPauseAfterRejectedMs = 200;
constexpr TimeSpan kLargestStep(0, 0, 2, 0);
constexpr TimeSpan kOneDay(1, 0, 0, 0);
constexpr TimeSpan kOneHour(3600);

constexpr ExchangePolicy kReadPolicy{
    .room = kClockAnswer,
    .expectedLength = kClockAnswer,
    .lowersRetryCountWhenStopped = true,
    .onClosedChannel = OnClosedChannel::OpenAccess,
    .onBusy = OnBusy::Validate,
    .pauseAfterRejectedMs = kPauseAfterRejectedMs,
    .keptLength = nullptr,
};

constexpr ExchangePolicy kCorrectPolicy{
    .room = kStatusAnswer,
    .expectedLength = 0,
    .lowersRetryCountWhenStopped = false,
    .onClosedChannel = OnClosedChannel::OpenAccess,
    .onBusy = OnBusy::Validate,
    .pauseAfterRejectedMs = kPauseAfterRejectedMs,
    .keptLength = nullptr,
};

/// Nothing when the meter shows an impossible date or time.
std::optional<CalendarTime> MeterTime(const std::uint8_t (&answer)[kClockAnswer]) {
  return CalendarTime::Make(2000 + FromBcd(answer[7]), FromBcd(answer[6]), FromBcd(answer[5]), FromBcd(answer[3]),
                            FromBcd(answer[2]), FromBcd(answer[1]));
}

ClockSetting TimeOfDay(CalendarTime time) {
  return {.hours = static_cast<std::uint8_t>(time.GetHour()),
          .minutes = static_cast<std::uint8_t>(time.GetMinute()),
          .seconds = static_cast<std::uint8_t>(time.GetSecond())};
}

/// Where the clock goes, and how long it is left alone after that.
struct Step {
  CalendarTime target;
  TimeSpan rest;
};

Step NextStep(CalendarTime now, CalendarTime meter, std::uint32_t days) {
  const TimeSpan behind = now - meter;
  if (behind > kLargestStep) return {meter + kLargestStep, kOneDay};
  if (behind < TimeSpan(-kLargestStep.Seconds())) return {meter - kLargestStep, kOneDay};
  return {now, TimeSpan(days, 0, 0, 0)};
}

}  // namespace

std::uint32_t ReadMeterClock(CProtocol& protocol, std::uint32_t device, std::uint8_t (&answer)[kClockAnswer]) {
  const DeviceEntry* entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  std::uint8_t request[] = {static_cast<std::uint8_t>(entry->Address), 0x04, 0x00, 0, 0};
  AppendCrc(request, sizeof request);
  const ExchangeOutcome outcome = RunExchange(protocol, device, request, answer, kReadPolicy);
  entry = protocol.Device(device);
  if (entry == nullptr) return 0;
  ReportEvent(protocol, outcome.code, entry->Address);
  UpdateLinkState(protocol, device, outcome.valid);
  return outcome.valid ? 1 : 0;
}

std::uint32_t CompareClock(CProtocol& protocol, DeviceEntry& entry, const std::uint8_t (&answer)[kClockAnswer],
                           ClockSetting& setting) {
  const std::uint32_t days = protocol.HostContext == nullptr ? 0 : protocol.HostContext->ClockCorrectionDays;
  if (days == 0) return 0;
  const CalendarTime now = CalendarTime::Now();
  if (entry.ForceClockCheck == 0 && CalendarTime(entry.NextClockCheck) > now) return 0;
  const std::optional<CalendarTime> meter = MeterTime(answer);
  if (!meter) return 0;
  const Step step = NextStep(now, *meter, days);
  setting = TimeOfDay(step.target);
  entry.NextClockCheck = (now + step.rest).Seconds();
  return 1;
}

bool ShowsRepeatedHour(const std::uint8_t (&answer)[kClockAnswer]) {
  const std::optional<CalendarTime> meter = MeterTime(answer);
  if (!meter) return false;
  return meter->GetHour() == (*meter - kOneHour).GetHour() || meter->GetHour() == (*meter + kOneHour).GetHour();
}

std::uint32_t CorrectMeterClock(CProtocol& protocol, std::uint32_t device, const ClockSetting& setting) {
  const DeviceEntry* const entry = protocol.Device(device);
  if (entry == nullptr) return 1;
  const std::uint32_t address = entry->Address;
  std::uint8_t request[] = {
      static_cast<std::uint8_t>(address), 0x03, 0x0D, ToBcd(setting.seconds), ToBcd(setting.minutes), ToBcd(setting.hours), 0, 0};
  AppendCrc(request, sizeof request);
  std::uint8_t answer[kStatusAnswer] = {};
  const ExchangeOutcome outcome = RunExchange(protocol, device, request, answer, kCorrectPolicy);
  UpdateLinkState(protocol, device, outcome.valid);
  const bool corrected = outcome.valid && answer[1] != kStatusCorrectionRefused;
  ReportEvent(protocol, corrected ? kEventClockCorrected : kEventClockCorrectionFailed, address);
  return 1;
}

}  // namespace ostrel
