// One write as an OPC client makes it: left on the tag, carried out by the plug-in in a pass when the tag is good, and judged
// afterwards by what the meter answered and by the value read back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/session/Channel.h"

namespace ostrel::host {

enum class WriteOutcome : std::uint8_t { Accepted, Refused, Unanswered, Differs };

struct WriteReport {
  std::string channel;
  std::string meter;
  std::uint32_t address = 0;
  TagDefinition tag;
  Value before;
  Value sent;
  Value after;
  WriteOutcome outcome = WriteOutcome::Unanswered;
  std::string reason;  // for people, empty when accepted
};

[[nodiscard]] const char* OutcomeText(WriteOutcome outcome);

/// Throws Failure (usage) when the tag cannot or may not be written, or the text is no value within its range.
void CheckWrite(const PolledTag& tag, const std::string& value);

class ClientWrite {
 public:
  /// Leaves the write on the tag as soon as that is good. One at a time per channel. Throws what CheckWrite throws.
  ClientWrite(Channel& channel, Meter& meter, std::size_t tag, const std::string& value);

  /// To be asked after each pass: what became of it, once it is over. Throws Failure (usage) when the meter turns out to have
  /// no room for the value; nothing was sent then.
  [[nodiscard]] std::optional<WriteReport> AfterPass();
  /// Takes the write back from the tag and says how far it came.
  [[nodiscard]] WriteReport GiveUp();

 private:
  void PlaceWhenGood();
  [[nodiscard]] WriteReport Judge(bool carriedOut);

  Channel& channel_;
  Meter& meter_;
  std::size_t tag_;
  VARIANT value_ = {};
  Value before_;
  std::uint32_t meterConstant_ = 0;  // when the write was left on the tag
  bool placed_ = false;
};

}  // namespace ostrel::host
