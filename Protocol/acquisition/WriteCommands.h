// The commands that clients' writes become: one row for each family of writable tags.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "Protocol/model/CalendarTime.h"
#include "platform/variant.h"

namespace ostrel {

/// What a client wrote, and what the command needs of the meter and the computer.
struct WriteSubject {
  std::uint32_t tagNumber;
  VARIANT written;
  std::uint8_t address;
  std::uint32_t meterConstant;
  std::uint8_t timeSetByte;
  CalendarTime now;
};

struct WriteCommand {
  std::array<std::uint8_t, 13> bytes{};
  std::uint32_t length = 0;

  [[nodiscard]] std::span<const std::uint8_t> Bytes() const { return std::span(bytes).first(length); }
};

enum class WriteDecision : std::uint8_t {
  Send,
  Drop,          // no command for this tag or value
  LeavePending,  // a time correction of 0
};

/// Builds the frame with its check when the decision is to send.
[[nodiscard]] WriteDecision BuildWriteCommand(const WriteSubject& subject, WriteCommand& command);

}  // namespace ostrel
