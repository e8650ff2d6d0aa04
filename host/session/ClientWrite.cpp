#include "host/session/ClientWrite.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Protocol/model/SharedFlag.h"
#include "Protocol/model/TagCatalogue.h"
#include "host/session/Failure.h"

namespace ostrel::host {
namespace {

enum Status : std::uint8_t { kDone = 0, kChannelClosed = 5, kBusy = 6, kRefused = 0x0F };

// Tags that carry a command and always read 0: nothing can be compared.
constexpr std::uint32_t kCommandTags[] = {kTagTimeCorrection, kTagTimeSetup, kTagIndicationPeriod, kTagTransitionInhibitCommand,
                                          kTagIndicationRecoveryCommand};

bool IsCommand(const TagDefinition& tag) {
  return std::find(std::begin(kCommandTags), std::end(kCommandTags), tag.id - kFirstDaId) != std::end(kCommandTags);
}

// Power limits are kept in steps of 0.1, energies to one impulse.
bool SameNumber(float sent, float after) {
  constexpr float kHalfStep = 0.0501F;
  constexpr float kRelative = 1e-5F;
  return std::fabs(after - sent) <= std::max(kHalfStep, kRelative * std::fabs(sent));
}

bool SameValue(const Value& sent, const Value& after) {
  const auto* const sentNumber = std::get_if<float>(&sent);
  const auto* const afterNumber = std::get_if<float>(&after);
  return sentNumber != nullptr && afterNumber != nullptr ? SameNumber(*sentNumber, *afterNumber) : sent == after;
}

std::string RefusalText(std::uint8_t status) {
  switch (status) {
    case kChannelClosed:
      return "the meter gives no access";
    case kBusy:
      return "the meter stayed busy";
    default:
      return fmt::format("the meter refused with status {}", status);
  }
}

}  // namespace

const char* OutcomeText(WriteOutcome outcome) {
  switch (outcome) {
    case WriteOutcome::Accepted:
      return "accepted";
    case WriteOutcome::Refused:
      return "refused";
    case WriteOutcome::Unanswered:
      return "unanswered";
    case WriteOutcome::Differs:
      break;
  }
  return "differs";
}

void CheckWrite(const TagDefinition& tag, const std::string& value) {
  if (!tag.Writable()) throw Failure(kExitUsage, fmt::format("\"{}\" cannot be written", tag.name));
  (void)ParseWriteValue(value, tag.DataType());
}

ClientWrite::ClientWrite(Channel& channel, Meter& meter, std::size_t tag, const std::string& value)
    : channel_(channel), meter_(meter), tag_(tag) {
  PolledTag& polled = meter.tags[tag];
  value_ = ParseWriteValue(value, polled.definition.DataType());
  channel_.SelectTag(meter, tag);
  channel_.Frames().Begin();
  const PollGuard guard(channel_.Protocol());
  before_ = ReadTag(polled).value;
  polled.tag->WriteValue = value_;
  StoreFlag(polled.tag->WritePending, 1);
}

std::optional<WriteReport> ClientWrite::AfterPass() {
  const PollGuard guard(channel_.Protocol());
  PolledTag& polled = meter_.tags[tag_];
  if (LoadFlag(polled.tag->WritePending) == 0) return Judge(true);
  // It waits for the tag to become good: what this pass has read is what stands before the write.
  before_ = ReadTag(polled).value;
  return std::nullopt;
}

WriteReport ClientWrite::GiveUp() {
  const PollGuard guard(channel_.Protocol());
  const bool carriedOut = LoadFlag(meter_.tags[tag_].tag->WritePending) == 0;
  StoreFlag(meter_.tags[tag_].tag->WritePending, 0);
  return Judge(carriedOut);
}

// The caller holds PollLock.
WriteReport ClientWrite::Judge(bool carriedOut) {
  channel_.Frames().End();
  PolledTag& polled = meter_.tags[tag_];
  const TagDefinition& tag = polled.definition;
  const TagReading after = ReadTag(polled);
  WriteReport report{.meter = meter_.config.name,
                     .tag = tag,
                     .before = before_,
                     .sent = ValueOf(value_),
                     .after = after.value,
                     .outcome = WriteOutcome::Unanswered,
                     .reason = {}};
  const bool byFrame = tag.id != kFirstDaId + kTagExchange;
  const WriteAnswer answer = channel_.Frames().Outcome(static_cast<std::uint8_t>(meter_.config.address),
                                                       static_cast<std::uint8_t>(tag.descriptor[kColumnWriteParam]));
  if (byFrame ? !answer.sent : !carriedOut) {
    const bool linked = after.quality == kQualityGood;
    report.outcome = linked ? WriteOutcome::Refused : WriteOutcome::Unanswered;
    report.reason = linked ? "there is no command for this value" : "the meter does not answer";
  } else if (byFrame && !answer.status) {
    report.reason = "no answer to the command";
  } else if (byFrame && *answer.status != kDone) {
    report.outcome = WriteOutcome::Refused;
    report.reason = RefusalText(*answer.status);
  } else if (after.quality != kQualityGood) {
    report.reason = "the value could not be read back";
  } else if (!IsCommand(tag) && !SameValue(report.sent, after.value)) {
    report.outcome = WriteOutcome::Differs;
    report.reason = "the value read back differs";
  } else {
    report.outcome = WriteOutcome::Accepted;
  }
  return report;
}

}  // namespace ostrel::host
