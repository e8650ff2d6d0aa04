#include "Protocol/link/Transmit.h"

#include <algorithm>
#include <string>

#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/link/Line.h"
#include "Protocol/link/Port.h"
#include "Protocol/model/Guarded.h"
#include "platform/clock.h"

namespace ostrel {
namespace {

constexpr std::int8_t kTraceFrames = 1;
constexpr std::int8_t kTraceCalls = 2;

// What the trace finds no memory for is dropped: the exchange goes on.

DebugTrace* TraceOf(const Line& line) { return line.HostContext != nullptr ? line.HostContext->Trace : nullptr; }

void TraceCall(const Line& line) {
  DebugTrace* const trace = TraceOf(line);
  if (trace != nullptr) Guarded(0, [&] { return trace->WriteCommon(kTraceCalls, "CProtocol::TransmitAndRecieve"); });
}

std::string HexText(const std::uint8_t* bytes, std::uint32_t count) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(std::size_t{3} * count);
  for (std::uint32_t i = 0; i < count; ++i) {
    text += ' ';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0FU];
  }
  return text;
}

/// `label` "Write" or "Read", the count that the port reported, and the bytes.
void TraceFrame(const Line& line, const char* label, std::uint32_t reported, const std::uint8_t* bytes, std::uint32_t count) {
  DebugTrace* const trace = TraceOf(line);
  if (trace == nullptr || !trace->IsCommonEnabled(kTraceFrames)) return;
  Guarded(0, [&] { return trace->WriteCommon(kTraceFrames, "%s<%u>%s", label, reported, HexText(bytes, count).c_str()); });
}

/// Throws stale input away, waits for output to drain, sends. The port gets a copy of the length, since it may change it.
bool SendRequest(Line& line, const std::uint8_t* request, std::uint32_t requestLength) {
  if (line.Channel.PreSendPause != 0) platform::Sleep(line.Channel.PreSendPause);
  IPortIo* const port = line.Channel.PortIo;
  if (FAILED(port->Read(nullptr, nullptr)) || FAILED(port->Write(nullptr, nullptr))) return false;
  std::uint32_t sent = requestLength;
  if (FAILED(port->Write(request, &sent))) return false;
  TraceFrame(line, "Write", sent, request, requestLength);
  return true;
}

/// Bytes that came, 0 after a failure. A port that claims more than was asked for is not believed.
std::uint32_t ReceiveAnswer(Line& line, std::uint8_t* buffer, std::uint32_t wanted) {
  std::uint32_t count = wanted;
  if (FAILED(line.Channel.PortIo->Read(buffer, &count))) count = 0;
  count = std::min(count, wanted);
  TraceFrame(line, "Read", count, buffer, count);
  return count;
}

}  // namespace

std::uint32_t Transmit(Line& line, const std::uint8_t* request, std::uint32_t requestLength, std::uint8_t* answer,
                       std::uint32_t* count, std::uint32_t offset) {
  if (count == nullptr || answer == nullptr || (offset == 0 && request == nullptr)) return 0;
  const std::uint32_t wanted = *count;
  *count = 0;
  if (line.PortOpen == 0) OpenPort(line);
  TraceCall(line);
  if (line.Channel.PortIo == nullptr) return 0;
  if (offset == 0 && !SendRequest(line, request, requestLength)) return 0;
  *count = ReceiveAnswer(line, answer + offset, wanted);
  if (*count != 0) return 1;
  if (line.Channel.PortIo->GetState() == kPortFailed) ClosePort(line);
  return 0;
}

}  // namespace ostrel
