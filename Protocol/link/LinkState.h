// What closes every exchange: the meter's link flags with its failure hold, and the operator's message.
#pragma once

#include <cstdint>

namespace ostrel {

class Line;

/// Codes of ReportEvent; every other one writes nothing.
enum EventCode : std::uint32_t {
  kEventBadPacket = 2,
  kEventBadCheck = 3,
  kEventNoAnswer = 4,
  kEventClockCorrected = 17,
  kEventClockCorrectionFailed = 18,
  kEventPortOpenFailed = 61249,
  kEventLinkRestored = 61252,
  kEventLevel2Refused = 61253,
};

/// Records the outcome of a transaction. The failure hold starts with the first failure after a success only.
void UpdateLinkState(Line& line, std::uint32_t device, bool success);

/// Writes the code's message with the port name and the meter's address (printed signed) into the host's event log.
void ReportEvent(Line& line, std::uint32_t code, std::uint32_t meterAddress);

}  // namespace ostrel
