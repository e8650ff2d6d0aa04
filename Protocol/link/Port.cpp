// The channel's settings, and the port that the first exchange opens with them.
#include "Protocol/link/Port.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "Protocol/link/LineGuard.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

struct PauseRow {
  std::uint32_t baudRate;
  std::uint32_t pauseMs;
};

constexpr PauseRow kPauses[] = {
    {.baudRate = 300, .pauseMs = 300},  {.baudRate = 600, .pauseMs = 160}, {.baudRate = 1200, .pauseMs = 40},
    {.baudRate = 2400, .pauseMs = 20},  {.baudRate = 4800, .pauseMs = 10}, {.baudRate = 9600, .pauseMs = 5},
    {.baudRate = 19200, .pauseMs = 5},  {.baudRate = 38400, .pauseMs = 5}, {.baudRate = 57600, .pauseMs = 5},
    {.baudRate = 115200, .pauseMs = 5},
};
constexpr std::uint32_t kUnknownBaudPauseMs = 300;

struct ParityRow {
  std::string_view name;  // code page 1251
  const char* letter;
};

constexpr ParityRow kParities[] = {
    {.name = "\xCD\xE5\xF2", .letter = "N"},              // Нет
    {.name = "\xD7\xE5\xF2", .letter = "E"},              // Чет
    {.name = "\xCD\xE5\xF7\xE5\xF2", .letter = "O"},      // Нечет
    {.name = "\xCC\xE0\xF0\xEA\xE5\xF0", .letter = "M"},  // Маркер
    {.name = "\xCF\xF0\xEE\xE1\xE5\xEB", .letter = "S"},  // Пробел
};
constexpr const char* kUnknownParity = "NONE";

constexpr std::uint32_t kPortBuffer = 2000;

/// The text of a field that need not hold a terminator.
std::string_view FieldText(const char* field, std::size_t most) { return {field, strnlen(field, most)}; }

/// The text may lie in the field itself, when a host passes the channel's own record back.
template <std::size_t Size>
void StoreText(char (&field)[Size], std::string_view text) {
  std::memmove(field, text.data(), text.size());
  std::memset(field + text.size(), 0, Size - text.size());
}

const char* ParityLetter(std::string_view name) {
  for (const ParityRow& row : kParities) {
    if (row.name == name) return row.letter;
  }
  return kUnknownParity;
}

void StoreSettings(CProtocol& protocol, const PortSettings& settings) {
  ChannelRecord& channel = protocol.Channel;
  channel.BaudRate = settings.BaudRate;
  std::atomic_ref<std::uint16_t>(channel.RetryCount).store(settings.RetryCount);
  channel.PollPeriod = settings.PollPeriod;
  channel.PortTimeout = settings.PortTimeout;
  channel.PreSendPause = settings.PreSendPause;
  protocol.PauseAfterError = PauseForBaudRate(settings.BaudRate);
  StoreText(channel.ParityCode, ParityLetter(FieldText(settings.ParityName, kParityNameKept)));
  StoreText(channel.PortName, FieldText(settings.PortName, kPortNameKept));
  StoreText(channel.SettingsText, FieldText(settings.SettingsText, kSettingsTextKept));
}

IObjectProvider* Provider(const CProtocol& protocol) {
  return protocol.HostContext != nullptr ? protocol.HostContext->ObjectProvider : nullptr;
}

/// Port object and port, or neither.
bool AcquirePort(CProtocol& protocol) {
  IObjectProvider* const provider = Provider(protocol);
  if (provider == nullptr) return false;
  std::uint32_t cookie = 0;
  void* object = nullptr;
  provider->CreatePortObject(kSerialPortKind, IID_IPortObject, &cookie, &object);
  protocol.Channel.PortCookie = cookie;
  protocol.Channel.PortObject = static_cast<IPortObject*>(object);
  void* io = nullptr;
  if (object != nullptr) protocol.LastPortResult = protocol.Channel.PortObject->QueryInterface(IID_IPortIo, &io);
  protocol.Channel.PortIo = static_cast<IPortIo*>(io);
  if (io == nullptr) ClosePort(protocol);
  return io != nullptr;
}

bool OpenDevice(CProtocol& protocol) {
  char deviceName[260];
  std::snprintf(deviceName, sizeof deviceName, "\\\\.\\%s", protocol.Channel.PortName);
  protocol.LastPortResult = protocol.Channel.PortObject->Open(deviceName);
  return !FAILED(protocol.LastPortResult);
}

/// None of these results matters: a port that cannot be set so still may work.
void ConfigureDevice(CProtocol& protocol) {
  const ChannelRecord& channel = protocol.Channel;
  char mode[64];
  std::snprintf(mode, sizeof mode, "baud=%d data=8 parity=%s stop=1", static_cast<int>(channel.BaudRate), channel.ParityCode);
  protocol.LastPortResult = channel.PortObject->SetMode(mode);
  protocol.PauseAfterError = PauseForBaudRate(channel.BaudRate);
  protocol.LastPortResult = channel.PortIo->SetTimeouts(channel.PortTimeout, protocol.PauseAfterError);
  protocol.LastPortResult = channel.PortObject->SetBuffers(kPortBuffer, kPortBuffer);
}

}  // namespace

std::uint32_t PauseForBaudRate(std::uint32_t baudRate) {
  for (const PauseRow& row : kPauses) {
    if (row.baudRate == baudRate) return row.pauseMs;
  }
  return kUnknownBaudPauseMs;
}

std::uint32_t OpenPort(CProtocol& protocol) {
  if (protocol.PortOpen != 0) return 1;
  ClosePort(protocol);  // what an opening that broke off has left
  if (!AcquirePort(protocol)) return 1;
  if (!OpenDevice(protocol)) {
    ReportEvent(protocol, kEventPortOpenFailed, 0);
    ClosePort(protocol);
    return 0;
  }
  ConfigureDevice(protocol);
  protocol.PortOpen = 1;
  return 1;
}

void ClosePort(CProtocol& protocol) {
  ChannelRecord& channel = protocol.Channel;
  if (channel.PortIo != nullptr) channel.PortIo->Release();
  channel.PortIo = nullptr;
  if (channel.PortObject != nullptr) channel.PortObject->Release();
  channel.PortObject = nullptr;
  IObjectProvider* const provider = Provider(protocol);
  if (provider != nullptr && channel.PortCookie != 0) provider->ReleasePortObject(channel.PortCookie);
  channel.PortCookie = 0;
  protocol.PortOpen = 0;
}

// A port that history opened is closed as well, with the context that it came from.
std::uint32_t STDMETHODCALLTYPE CProtocol::SetPortSettings(ostrel::HostContext* context, const PortSettings* settings) {
  if (settings == nullptr) return 0;
  // A Start of another thread waits for the new settings.
  const platform::CriticalSectionGuard thread(ThreadLock);
  Stop();
  const LineGuard line(*this);
  ClosePort(*this);
  HostContext = context;
  StoreSettings(*this, *settings);
  StoreFlag(Channel.ExchangeEnabled, 1);
  Channel.reserved172_ = 0;
  AnswerBuffer.fill(0);
  AnswerLength = 0;
  return 1;
}

}  // namespace ostrel
