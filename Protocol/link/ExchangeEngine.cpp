#include "Protocol/link/ExchangeEngine.h"

#include <algorithm>

#include "Protocol/link/AccessChannel.h"
#include "Protocol/link/Frame.h"
#include "Protocol/link/Line.h"
#include "Protocol/link/LinkState.h"
#include "platform/clock.h"
#include "platform/thread.h"

namespace ostrel {
namespace {

/// Start bit, eight data bits, parity or a second stop bit, stop bit.
constexpr std::uint32_t kBitsPerCharacter = 11;

/// One run of the loop. The meter's entry is looked up in every pass, since the table may change meanwhile.
class Exchange {
 public:
  Exchange(Line& line, std::uint32_t device, std::span<const std::uint8_t> request, std::uint8_t* answer,
           const ExchangePolicy& policy)
      : line_(line), device_(device), request_(request), answer_(answer), policy_(policy) {}

  ExchangeOutcome Run();

 private:
  enum class Step { Again, Restarted, Done, GiveUp };

  [[nodiscard]] std::atomic_ref<std::uint16_t> RetryCount() const {
    return std::atomic_ref<std::uint16_t>(line_.Channel.RetryCount);
  }
  Step Pass();
  Step Reopen();
  Step Judge(std::uint32_t address, std::uint32_t count);
  [[nodiscard]] bool IsWholeStatus(std::uint32_t count, std::uint8_t status) const;
  [[nodiscard]] bool GatheringEnds() const;
  void Keep(std::uint32_t count);
  void Drop();

  Line& line_;
  const std::uint32_t device_;
  const std::span<const std::uint8_t> request_;
  std::uint8_t* const answer_;
  const ExchangePolicy& policy_;
  std::uint32_t received_ = 0;
  std::uint32_t gatheringSince_ = 0;  // tick of the first piece
  std::uint32_t tries_ = 0;
  int reopenings_ = 0;
  std::uint8_t code_ = kAnswerValid;
};

ExchangeOutcome Exchange::Run() {
  Drop();
  // Read afresh in every pass: an access opening inside this loop may lower it.
  while (tries_ < RetryCount().load()) {
    switch (Pass()) {
      case Step::Done:
        return {.valid = true, .code = code_, .received = received_};
      case Step::GiveUp:
        return {.valid = false, .code = code_, .received = 0};
      case Step::Restarted:
        tries_ = 0;
        break;
      case Step::Again:
        if (received_ == 0) ++tries_;
        break;
    }
  }
  return {.valid = false, .code = code_, .received = 0};
}

Exchange::Step Exchange::Pass() {
  const DeviceEntry* const entry = line_.Device(device_);
  if (entry == nullptr) return Step::GiveUp;
  if (policy_.lowersRetryCountWhenStopped && line_.Running == 0) RetryCount().store(1);
  const std::uint32_t address = entry->Address;
  const std::uint32_t wanted = policy_.room - received_;
  std::uint32_t count = wanted;
  const auto length = static_cast<std::uint32_t>(request_.size());
  if (line_.TransmitAndRecieve(request_.data(), length, answer_, &count, received_) == 0) {
    code_ = kAnswerRefused;
    Drop();
    return Step::Again;
  }
  count = std::min(count, wanted);
  if (policy_.onClosedChannel != OnClosedChannel::Validate && IsWholeStatus(count, kStatusChannelClosed)) return Reopen();
  if (policy_.onBusy == OnBusy::RetryBeforeCheck && IsWholeStatus(count, kStatusBusy)) return Step::Again;
  return Judge(address, count);
}

/// A four-byte answer as a whole. In the last four bytes of a longer one, byte 1 of the buffer is a data byte.
bool Exchange::IsWholeStatus(std::uint32_t count, std::uint8_t status) const {
  return received_ == 0 && count == kStatusAnswer && answer_[1] == status;
}

Exchange::Step Exchange::Reopen() {
  if (reopenings_ == kMaxReopenings) return Step::GiveUp;
  ++reopenings_;
  const bool level1Only = policy_.onClosedChannel == OnClosedChannel::OpenLevel1;
  const std::uint32_t opened = level1Only ? OpenChannel(line_, device_, AccessLevel::Level1) : OpenAccess(line_, device_);
  if (opened == 0) return Step::GiveUp;
  Drop();
  return Step::Restarted;
}

Exchange::Step Exchange::Judge(std::uint32_t address, std::uint32_t count) {
  code_ = ValidateAnswer(answer_, received_ + count, address, policy_.expectedLength);
  switch (code_) {
    case kAnswerValid:
      Keep(count);
      if (policy_.onBusy != OnBusy::RetryAfterCheck || received_ != kStatusAnswer || answer_[1] != kStatusBusy) return Step::Done;
      Drop();
      return Step::Again;
    case kAnswerIncomplete:
      if (received_ == 0) gatheringSince_ = platform::TickCount();
      Keep(count);
      if (GatheringEnds()) {
        code_ = kAnswerRefused;
        Drop();
      }
      return Step::Again;
    default:
      Drop();
      platform::Sleep(policy_.pauseAfterRejectedMs);
      return Step::Again;
  }
}

bool Exchange::GatheringEnds() const {
  if (line_.Running == 0 && platform::CurrentThreadId() == line_.ThreadId) return true;
  const ChannelRecord& channel = line_.Channel;
  const std::uint64_t longestMs = std::uint64_t{kMaxAnswer} * kBitsPerCharacter * 1000 / std::max(channel.BaudRate, 1U);
  return platform::TickCount() - gatheringSince_ > longestMs + std::uint64_t{kGatherTimeouts} * channel.PortTimeout;
}

void Exchange::Keep(std::uint32_t count) {
  received_ += count;
  if (policy_.keptLength != nullptr) *policy_.keptLength += count;
}

void Exchange::Drop() {
  received_ = 0;
  if (policy_.keptLength != nullptr) *policy_.keptLength = 0;
}

ExchangePolicy TransactionPolicy(const Line& line, std::uint32_t expectedLength) {
  return {.room = expectedLength,
          .expectedLength = expectedLength,
          .lowersRetryCountWhenStopped = true,
          .onClosedChannel = OnClosedChannel::OpenLevel1,
          .onBusy = OnBusy::Validate,
          .pauseAfterRejectedMs = line.PauseAfterError,
          .keptLength = nullptr};
}

}  // namespace

ExchangeOutcome RunExchange(Line& line, std::uint32_t device, std::span<const std::uint8_t> request, std::uint8_t* answer,
                            const ExchangePolicy& policy) {
  return Exchange(line, device, request, answer, policy).Run();
}

TransactionOutcome RunTransaction(Line& line, std::uint32_t device, std::span<const std::uint8_t> request,
                                  std::span<std::uint8_t> answer) {
  const ExchangePolicy policy = TransactionPolicy(line, static_cast<std::uint32_t>(answer.size()));
  const ExchangeOutcome outcome = RunExchange(line, device, request, answer.data(), policy);
  UpdateLinkState(line, device, outcome.valid);
  const DeviceEntry* const entry = line.Device(device);
  return {
      .valid = outcome.valid, .known = entry != nullptr, .code = outcome.code, .address = entry != nullptr ? entry->Address : 0};
}

void ReportTransaction(Line& line, const TransactionOutcome& outcome) {
  if (outcome.known) ReportEvent(line, outcome.code, outcome.address);
}

std::uint32_t ExecuteRequest(Line& line, std::uint32_t device, const std::uint8_t* request, std::uint32_t requestLength,
                             std::uint8_t* answer, std::uint32_t expectedLength) {
  if (request == nullptr || answer == nullptr || expectedLength == 0) return 0;
  line.LockExchange();
  const TransactionOutcome outcome = RunTransaction(line, device, {request, requestLength}, {answer, expectedLength});
  line.UnlockExchange();
  ReportTransaction(line, outcome);
  return outcome.valid ? 1 : 0;
}

}  // namespace ostrel
