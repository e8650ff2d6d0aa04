#include "Protocol/acquisition/ClockCorrection.h"

#include <optional>

#include "Protocol/link/ExchangeEngine.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/Bcd.h"
#include "Protocol/model/CalendarTime.h"
#include "Protocol/model/DeviceEntry.h"

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

/// 0: never.
std::uint32_t CorrectionDays(const Meters& meters) {
  return meters.HostContext == nullptr ? 0 : meters.HostContext->ClockCorrectionDays;
}

bool CheckIsDue(const Meters& meters, const DeviceEntry& entry) {
  if (CorrectionDays(meters) == 0) return false;
  return entry.ForceClockCheck != 0 || CalendarTime(entry.NextClockCheck) <= CalendarTime::Now();
}

}  // namespace

std::uint32_t ReadMeterClock(Meters& meters, std::uint32_t device, std::uint8_t (&answer)[kClockAnswer]) {
  const DeviceEntry* entry = meters.Device(device);
  if (entry == nullptr) return 0;
  std::uint8_t request[] = {static_cast<std::uint8_t>(entry->Address), 0x04, 0x00, 0, 0};
  AppendCrc(request, sizeof request);
  const ExchangeOutcome outcome = RunExchange(meters, device, request, answer, kReadPolicy);
  entry = meters.Device(device);
  if (entry == nullptr) return 0;
  ReportEvent(meters, outcome.code, entry->Address);
  UpdateLinkState(meters, device, outcome.valid);
  return outcome.valid ? 1 : 0;
}

std::uint32_t CompareClock(Meters& meters, DeviceEntry& entry, const std::uint8_t (&answer)[kClockAnswer],
                           ClockSetting& setting) {
  if (!CheckIsDue(meters, entry)) return 0;
  const CalendarTime now = CalendarTime::Now();
  const std::optional<CalendarTime> meter = MeterTime(answer);
  if (!meter) return 0;
  const Step step = NextStep(now, *meter, CorrectionDays(meters));
  setting = TimeOfDay(step.target);
  entry.NextClockCheck = (now + step.rest).Seconds();
  return 1;
}

bool ShowsUnclearTime(const std::uint8_t (&answer)[kClockAnswer]) {
  const std::optional<CalendarTime> meter = MeterTime(answer);
  if (!meter) return false;
  if (meter->GetHour() != FromBcd(answer[3]) || meter->GetDay() != FromBcd(answer[5])) return true;
  return meter->GetHour() == (*meter - kOneHour).GetHour() || meter->GetHour() == (*meter + kOneHour).GetHour();
}

std::uint32_t CorrectMeterClock(Meters& meters, std::uint32_t device, const ClockSetting& setting) {
  const DeviceEntry* const entry = meters.Device(device);
  if (entry == nullptr) return 1;
  const std::uint32_t address = entry->Address;
  std::uint8_t request[] = {
      static_cast<std::uint8_t>(address), 0x03, 0x0D, ToBcd(setting.seconds), ToBcd(setting.minutes), ToBcd(setting.hours), 0, 0};
  AppendCrc(request, sizeof request);
  std::uint8_t answer[kStatusAnswer] = {};
  const ExchangeOutcome outcome = RunExchange(meters, device, request, answer, kCorrectPolicy);
  UpdateLinkState(meters, device, outcome.valid);
  const bool corrected = outcome.valid && answer[1] != kStatusCorrectionRefused;
  ReportEvent(meters, corrected ? kEventClockCorrected : kEventClockCorrectionFailed, address);
  return 1;
}

bool CheckClock(Meters& meters, std::uint32_t device) {
  const LineGuard guard(meters);
  if (LoadFlag(meters.Device(device)->ExchangeOn) == 0) return true;
  std::uint8_t answer[kClockAnswer] = {};
  if (ReadMeterClock(meters, device, answer) == 0) return false;
  DeviceEntry& entry = *meters.Device(device);
  if (!CheckIsDue(meters, entry)) return true;
  // A check that is not forced can wait until the meter shows a clear time again; it stays due.
  if (entry.ForceClockCheck == 0 && ShowsUnclearTime(answer)) return true;
  ClockSetting setting{};
  if (CompareClock(meters, entry, answer, setting) != 0) CorrectMeterClock(meters, device, setting);
  return true;
}

}  // namespace ostrel
