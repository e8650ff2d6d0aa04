#include "Protocol/link/LinkState.h"

#include <string>
#include <string_view>

#include "Protocol/diagnostics/CLogFile.h"
#include "Protocol/link/Line.h"
#include "Protocol/model/Guarded.h"
#include "platform/resources.h"

namespace ostrel {
namespace {

struct MessageRow {
  std::uint32_t code;
  std::uint32_t stringId;
};

constexpr MessageRow kMessages[] = {
    {.code = kEventBadPacket, .stringId = 61243},
    {.code = kEventBadCheck, .stringId = 61241},
    {.code = kEventNoAnswer, .stringId = 61242},
    {.code = kEventClockCorrected, .stringId = 61251},
    {.code = kEventClockCorrectionFailed, .stringId = 61250},
    {.code = kEventPortOpenFailed, .stringId = 61249},
    {.code = kEventLinkRestored, .stringId = 61252},
    {.code = kEventLevel2Refused, .stringId = 61253},
};

constexpr std::size_t kMessageBuffer = 260;
constexpr std::size_t kLongestMessage = 199;

const MessageRow* FindMessage(std::uint32_t code) {
  for (const MessageRow& row : kMessages) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

/// Knows the two placeholders that the messages have; whatever else the table holds comes out as it is.
std::string FormatMessage(std::string_view format, std::string_view portName, std::uint32_t meterAddress) {
  std::string text;
  while (!format.empty()) {
    const bool port = format.starts_with("%s");
    const bool meter = format.starts_with("%d");
    if (port) {
      text += portName;
    } else if (meter) {
      text += std::to_string(static_cast<std::int32_t>(meterAddress));
    } else {
      text += format.front();
    }
    format.remove_prefix(port || meter ? 2 : 1);
  }
  if (text.size() > kLongestMessage) text.resize(kLongestMessage);
  return text;
}

}  // namespace

// The hold is published last: whoever sees it also sees the timer restarted.
void UpdateLinkState(Line& line, std::uint32_t device, bool success) {
  DeviceEntry* const entry = line.Device(device);
  if (entry == nullptr) return;
  if (success) {
    StoreFlag(entry->FailHold, 0);
    if (entry->LinkUp != 0) return;
    entry->LinkUp = 1;
    entry->LinkDown = 0;
    return;
  }
  if (LoadFlag(entry->FailHold) == 0) {
    entry->FailHoldTimer.Restart();
    StoreFlag(entry->FailHold, 1);
  }
  if (entry->LinkDown != 0) return;
  entry->LinkUp = 0;
  entry->LinkDown = 1;
}

void ReportEvent(Line& line, std::uint32_t code, std::uint32_t meterAddress) {
  if (line.HostContext == nullptr || line.HostContext->LogFile == nullptr) return;
  const MessageRow* const row = FindMessage(code);
  if (row == nullptr) return;
  // A line that there is no memory for is dropped; whoever reports has the line's lock to give back.
  Guarded(0, [&] {
    char format[kMessageBuffer] = {};
    if (!platform::LoadModuleString(row->stringId, format, sizeof format)) format[0] = 0;
    line.HostContext->LogFile->WriteEvent(FormatMessage(format, line.Channel.PortName, meterAddress));
    return 0;
  });
}

}  // namespace ostrel
