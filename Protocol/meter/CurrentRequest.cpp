#include "Protocol/meter/CurrentRequest.h"

#include "Protocol/link/Frame.h"
#include "Protocol/meter/Meters.h"

namespace ostrel {
namespace {

/// Answers are asked for at full room whatever their length: several kinds have none that is known beforehand.
ExchangePolicy ReadPolicy(Meters& meters, std::uint32_t expectedLength) {
  return {
      .room = kMaxAnswer,
      .expectedLength = expectedLength,
      .lowersRetryCountWhenStopped = true,
      .onClosedChannel = OnClosedChannel::OpenAccess,
      .onBusy = OnBusy::RetryAfterCheck,
      .pauseAfterRejectedMs = meters.PauseAfterError,
      .keptLength = &meters.AnswerLength,
  };
}

}  // namespace

ExchangeOutcome AskCurrent(Meters& meters, std::uint32_t device, std::span<const std::uint8_t> request,
                           std::uint32_t expectedLength) {
  ++meters.AnswerSerial;
  meters.AnswerBuffer.fill(0);
  meters.AnswerLength = 0;
  return RunExchange(meters, device, request, meters.AnswerBuffer.data(), ReadPolicy(meters, expectedLength));
}

}  // namespace ostrel
