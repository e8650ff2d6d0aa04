#include "host/session/LineFinding.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/ports/FrameCheck.h"
#include "host/session/MeterFrames.h"

namespace ostrel::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kShortestFrame = 4;

struct FindingRow {
  Finding finding;
  const char* name;
  std::string (*sentence)(const Diagnosis&);
};

std::string Measured(const Diagnosis& d) {
  const std::string lost = d.lost == 0 ? "none lost" : fmt::format("{} lost", d.lost);
  const std::string clock = d.clockOffsetS == 0 ? "clock right" : fmt::format("clock {:+} s", d.clockOffsetS);
  return fmt::format("serial number {}, {}, {}, answers after {} ms (at worst {} ms), {} of {} asks", d.serial, d.typeName, clock,
                     d.medianMs, d.worstMs, lost, d.asked);
}

std::string Port(const Diagnosis& d, const char* remedy) {
  return d.reason + ": " + remedy + (d.hint.empty() ? "" : "; " + d.hint);
}

constexpr FindingRow kFindings[] = {
    {Finding::Good, "good",
     [](const Diagnosis& d) {
       return d.asked != 0 ? "good: " + Measured(d)
                           : "the meter answers now, so the line is unsteady: look at wires and termination";
     }},
    {Finding::Bursts, "bursts",
     [](const Diagnosis& d) {
       return fmt::format("answers come in bursts {} ms apart: lower the adapter's latency timer{}; {}", d.gapMs,
                          d.hint.empty() ? "" : " (" + d.hint + ")", Measured(d));
     }},
    {Finding::PortMissing, "port-missing",
     [](const Diagnosis& d) { return Port(d, "plug the adapter in, or correct `device`"); }},
    {Finding::PortNotPermitted, "port-not-permitted",
     [](const Diagnosis& d) { return Port(d, "let this user in, with `sudo adduser $USER GROUP`, and log in again"); }},
    {Finding::PortBusy, "port-busy", [](const Diagnosis& d) { return Port(d, "end the program that has the port"); }},
    {Finding::PortNoLine, "port-no-line", [](const Diagnosis& d) { return Port(d, "correct `device`"); }},
    {Finding::PortFailed, "port-failed",
     [](const Diagnosis& d) { return Port(d, "look at the device, the address of the gateway and its cable"); }},
    {Finding::Chatter, "chatter",
     [](const Diagnosis& d) {
       return fmt::format(
           "{} bytes came in 2 s before anything was asked: another master is on the line, or noise; end the other "
           "program, or look at termination and screen",
           d.bytes);
     }},
    {Finding::Silence, "silence",
     [](const Diagnosis&) {
       return std::string(
           "nothing came: look at the wires (A and B changed over?), the meter's power, its address and the speed; "
           "--scan-addresses and --scan-speeds search");
     }},
    {Finding::Garbage, "garbage",
     [](const Diagnosis& d) {
       return fmt::format("{} bytes came and no frame among them: baud rate or parity is another; --scan-speeds searches",
                          d.bytes);
     }},
    {Finding::Echo, "echo",
     [](const Diagnosis&) { return std::string("the request itself came back: the adapter echoes; set echo = true"); }},
    {Finding::NoEcho, "no-echo",
     [](const Diagnosis&) {
       return std::string("the configuration says echo = true, and the request did not come back; set echo = false");
     }},
    {Finding::Late, "late",
     [](const Diagnosis& d) {
       return fmt::format("the answer came {} ms after the time-out; set timeout_ms = {}", d.lateMs, d.timeoutMs);
     }},
    {Finding::Foreign, "foreign",
     [](const Diagnosis& d) {
       return fmt::format(
           "a meter with another address answered ({}): two meters or gateways share the line wrongly; look at the "
           "addresses and the wiring",
           d.address);
     }},
    {Finding::Glued, "glued",
     [](const Diagnosis&) {
       return std::string("two answers came to one request: two meters have this address; ask them one at a time and change one");
     }},
    {Finding::Level1Refused, "level1-refused",
     [](const Diagnosis&) { return std::string("the meter refused the password of level 1; correct level1_password"); }},
    {Finding::Level2Refused, "level2-refused",
     [](const Diagnosis&) {
       return std::string(
           "the meter refused the password of level 2 and took that of level 1; correct level2_password. A meter whose "
           "channel is open at level 1 refuses a right one too, until nobody has asked it for four minutes");
     }},
    {Finding::WrongType, "wrong-type",
     [](const Diagnosis& d) { return fmt::format("the meter is of another type; set type = {} ({})", d.type, d.typeName); }},
    {Finding::UnknownType, "unknown-type",
     [](const Diagnosis& d) { return fmt::format("the meter is of a type that the plug-in does not serve (code {})", d.type); }},
    {Finding::Unsteady, "unsteady",
     [](const Diagnosis& d) {
       return fmt::format(
           "the meter answered at first and not any more ({} of {} asks lost): look at wires, termination and power", d.lost,
           d.asked);
     }},
};

const FindingRow& RowOf(Finding finding) {
  return *std::find_if(std::begin(kFindings), std::end(kFindings),
                       [finding](const FindingRow& row) { return row.finding == finding; });
}

bool BeginsWith(Bytes bytes, Bytes begin) {
  return bytes.size() >= begin.size() && std::equal(begin.begin(), begin.end(), bytes.begin());
}

// A frame, and right behind it another one.
bool IsGlued(Bytes bytes, std::uint8_t address) {
  for (std::size_t end = kShortestFrame; end + kShortestFrame <= bytes.size(); ++end) {
    if (HasRightCheck(bytes.first(end)) && bytes[end] == address && HasRightCheck(bytes.subspan(end))) return true;
  }
  return false;
}

Diagnosis DiagnoseBytes(Bytes bytes, std::uint8_t address) {
  if (bytes.empty()) return {.finding = Finding::Silence};
  if (IsGlued(bytes, address)) return {.finding = Finding::Glued};
  if (!FrameOf(bytes, address).empty()) return {.finding = Finding::Good};
  // Anywhere else four bytes may look like a frame by chance.
  if (HasRightCheck(bytes)) return {.finding = Finding::Foreign, .address = bytes[0]};
  return {.finding = Finding::Garbage, .bytes = bytes.size()};
}

}  // namespace

const char* FindingName(Finding finding) { return RowOf(finding).name; }

std::string Sentence(const Diagnosis& diagnosis) { return RowOf(diagnosis.finding).sentence(diagnosis); }

bool IsUsable(Finding finding) {
  return finding == Finding::Good || finding == Finding::Bursts || finding == Finding::Level2Refused;
}

bool IsOfPort(Finding finding) { return finding >= Finding::PortMissing && finding <= Finding::PortFailed; }

Diagnosis DiagnosePort(const std::string& reason, const platform::SerialDevice& device) {
  Diagnosis port{.finding = Finding::PortFailed, .reason = reason};
  if (!device.exists || !device.isLine) {
    port.finding = device.exists ? Finding::PortNoLine : Finding::PortMissing;
    port.hint = device.adapters.empty() ? "no adapter shows in /dev/serial/by-id"
                                        : fmt::format("there are {}", fmt::join(device.adapters, ", "));
  } else if (!device.permitted) {
    port.finding = Finding::PortNotPermitted;
    port.hint = fmt::format("GROUP is {}", device.group.empty() ? "dialout" : device.group);
  } else if (!device.holders.empty() || reason.find("in use") != std::string::npos || reason.find("busy") != std::string::npos) {
    port.finding = Finding::PortBusy;
    port.hint = device.holders.empty() ? "" : fmt::format("it is process {}", fmt::join(device.holders, ", "));
  }
  return port;
}

Bytes AnswerIn(const Heard& heard, Bytes request, bool echo) {
  const Bytes bytes = heard.bytes;
  return FrameOf(echo && BeginsWith(bytes, request) ? bytes.subspan(request.size()) : bytes, request[0]);
}

Diagnosis DiagnoseAnswer(const Heard& heard, Bytes request, bool echo, std::uint32_t timeoutMs) {
  const Bytes bytes = heard.bytes;
  const bool echoed = BeginsWith(bytes, request);
  if (echoed && !echo) return {.finding = Finding::Echo};
  if (!bytes.empty() && echo && !echoed && !FrameOf(bytes, request[0]).empty()) return {.finding = Finding::NoEcho};
  Diagnosis found = DiagnoseBytes(echoed ? bytes.subspan(request.size()) : bytes, request[0]);
  if (found.finding != Finding::Good || heard.firstMs <= timeoutMs) return found;
  constexpr std::uint32_t kStep = 50;
  found.finding = Finding::Late;
  found.lateMs = heard.firstMs - timeoutMs;
  found.timeoutMs = (heard.firstMs + heard.firstMs / 4 + kStep) / kStep * kStep;
  return found;
}

}  // namespace ostrel::host
