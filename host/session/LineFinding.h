// From what was on the wire to a cause and what to do about it: one row for each thing that goes wrong on site.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "host/session/Wire.h"
#include "platform/serial_device.h"

namespace ostrel::host {

enum class Finding : std::uint8_t {
  Good,
  Bursts,  // good, but slow
  PortMissing,
  PortNotPermitted,
  PortBusy,
  PortNoLine,
  PortFailed,
  Chatter,
  Silence,
  Garbage,
  Echo,
  NoEcho,
  Late,
  Foreign,
  Glued,
  Level1Refused,
  Level2Refused,
  WrongType,
  UnknownType,
  Unsteady,
};

/// What the sentences need; each finding uses its own.
struct Diagnosis {
  Finding finding = Finding::Good;
  std::string reason;           // the system's, for a port
  std::string hint;             // who holds the port, which others there are
  std::size_t bytes = 0;        // that came
  std::uint32_t lateMs = 0;     // behind the time-out
  std::uint32_t timeoutMs = 0;  // to be set
  std::uint32_t gapMs = 0;      // between bursts
  std::uint32_t address = 0;    // of a stranger
  std::uint32_t type = 0;       // to be set
  std::string typeName;
  std::uint32_t asked = 0;
  std::uint32_t lost = 0;
  std::uint32_t medianMs = 0;
  std::uint32_t worstMs = 0;
  std::string serial;             // empty when it was not read
  std::int64_t clockOffsetS = 0;  // the meter's clock is ahead by this
};

/// A word for programs: "port-missing", "silence", "good".
[[nodiscard]] const char* FindingName(Finding finding);
/// What it is, and what to do.
[[nodiscard]] std::string Sentence(const Diagnosis& diagnosis);
/// Whether the meter can be read as it is configured.
[[nodiscard]] bool IsUsable(Finding finding);
[[nodiscard]] bool IsOfPort(Finding finding);

/// Of a port that did not open: the system's reason and what it says of the device.
[[nodiscard]] Diagnosis DiagnosePort(const std::string& reason, const platform::SerialDevice& device);

/// Of what came behind a request for `address`. `echo` as configured; the request with its check.
[[nodiscard]] Diagnosis DiagnoseAnswer(const Heard& heard, std::span<const std::uint8_t> request, bool echo,
                                       std::uint32_t timeoutMs);

/// The frame among these bytes, without a configured echo before it; empty when there is none.
[[nodiscard]] std::span<const std::uint8_t> AnswerIn(const Heard& heard, std::span<const std::uint8_t> request, bool echo);

}  // namespace ostrel::host
