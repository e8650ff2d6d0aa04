#include "host/session/ClientWrite.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Protocol/model/SharedFlag.h"
#include "Protocol/model/TagCatalogue.h"
#include "host/session/Failure.h"
#include "host/session/WriteRange.h"

namespace ostrel::host {
namespace {

enum Status : std::uint8_t { kDone = 0, kChannelClosed = 5, kBusy = 6, kRefused = 0x0F };

// Tags that carry a command and always read 0: nothing can be compared.
constexpr std::uint32_t kCommandTags[] = {kTagTimeCorrection, kTagTimeSetup, kTagIndicationPeriod, kTagTransitionInhibitCommand,
                                          kTagIndicationRecoveryCommand};

bool IsCommand(const TagDefinition& tag) {
  return std::find(std::begin(kCommandTags), std::end(kCommandTags), tag.id - kFirstDaId) != std::end(kCommandTags);
}

bool SameValue(const TagDefinition& tag, const Value& sent, const Value& after, std::uint32_t meterConstant) {
  const auto* const sentNumber = std::get_if<float>(&sent);
  const auto* const afterNumber = std::get_if<float>(&after);
  if (sentNumber == nullptr || afterNumber == nullptr) return sent == after;
  return std::fabs(*afterNumber - *sentNumber) <= WriteTolerance(tag, *sentNumber, meterConstant);
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

void CheckWrite(const PolledTag& tag, const std::string& value) {
  const TagDefinition& definition = tag.definition;
  if (!definition.Writable()) throw Failure(kExitUsage, fmt::format("\"{}\" cannot be written", definition.name));
  if (tag.readOnly) throw Failure(kExitUsage, fmt::format("\"{}\" is read-only by the configuration", definition.name));
  CheckRange(definition, ParseWriteValue(value, definition.DataType()));
}

ClientWrite::ClientWrite(Channel& channel, Meter& meter, std::size_t tag, const std::string& value)
    : channel_(channel), meter_(meter), tag_(tag) {
  CheckWrite(meter.tags[tag], value);
  value_ = ParseWriteValue(value, meter.tags[tag].definition.DataType());
  channel_.SelectTag(meter, tag);
  const PollGuard guard(channel_.Protocol());
  PlaceWhenGood();
}

// The plug-in waits for a good tag too; only then is known what stands before the write and what an impulse is worth.
void ClientWrite::PlaceWhenGood() {
  PolledTag& polled = meter_.tags[tag_];
  const TagReading reading = ReadTag(polled);
  before_ = reading.value;
  if (reading.quality != kQualityGood) return;
  meterConstant_ = channel_.Record(meter_).MeterConstant;
  CheckImpulses(polled.definition, value_, meterConstant_);
  channel_.Frames().Begin();
  polled.tag->WriteValue = value_;
  StoreFlag(polled.tag->WritePending, 1);
  placed_ = true;
}

std::optional<WriteReport> ClientWrite::AfterPass() {
  const PollGuard guard(channel_.Protocol());
  PolledTag& polled = meter_.tags[tag_];
  if (!placed_) {
    PlaceWhenGood();
    return std::nullopt;
  }
  if (LoadFlag(polled.tag->WritePending) == 0) return Judge(true);
  // A meter that was lost meanwhile is read again before it is written.
  before_ = ReadTag(polled).value;
  return std::nullopt;
}

WriteReport ClientWrite::GiveUp() {
  const PollGuard guard(channel_.Protocol());
  const bool carriedOut = placed_ && LoadFlag(meter_.tags[tag_].tag->WritePending) == 0;
  StoreFlag(meter_.tags[tag_].tag->WritePending, 0);
  return Judge(carriedOut);
}

// The caller holds PollLock.
WriteReport ClientWrite::Judge(bool carriedOut) {
  channel_.Frames().End();
  PolledTag& polled = meter_.tags[tag_];
  const TagDefinition& tag = polled.definition;
  const TagReading after = ReadTag(polled);
  WriteReport report{.channel = channel_.Config().port,
                     .meter = meter_.config.name,
                     .address = meter_.config.address,
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
  } else if (!IsCommand(tag) && !SameValue(tag, report.sent, after.value, meterConstant_)) {
    report.outcome = WriteOutcome::Differs;
    report.reason = "the value read back differs";
  } else {
    report.outcome = WriteOutcome::Accepted;
  }
  return report;
}

}  // namespace ostrel::host
