// The channel's settings, and the port that the first exchange opens with them.
#include "Protocol/link/Port.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "Protocol/link/Line.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/link/LinkState.h"

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

void StoreSettings(Line& line, const PortSettings& settings) {
  ChannelRecord& channel = line.Channel;
  channel.BaudRate = settings.BaudRate;
  std::atomic_ref<std::uint16_t>(channel.RetryCount).store(settings.RetryCount);
  channel.PollPeriod = settings.PollPeriod;
  channel.PortTimeout = settings.PortTimeout;
  channel.PreSendPause = settings.PreSendPause;
  line.PauseAfterError = PauseForBaudRate(settings.BaudRate);
  StoreText(channel.ParityCode, ParityLetter(FieldText(settings.ParityName, kParityNameKept)));
  StoreText(channel.PortName, FieldText(settings.PortName, kPortNameKept));
  StoreText(channel.SettingsText, FieldText(settings.SettingsText, kSettingsTextKept));
}

IObjectProvider* Provider(const Line& line) { return line.HostContext != nullptr ? line.HostContext->ObjectProvider : nullptr; }

/// Port object and port, or neither.
bool AcquirePort(Line& line) {
  IObjectProvider* const provider = Provider(line);
  if (provider == nullptr) return false;
  std::uint32_t cookie = 0;
  void* object = nullptr;
  provider->CreatePortObject(kSerialPortKind, IID_IPortObject, &cookie, &object);
  line.Channel.PortCookie = cookie;
  line.Channel.PortObject = static_cast<IPortObject*>(object);
  void* io = nullptr;
  if (object != nullptr) line.LastPortResult = line.Channel.PortObject->QueryInterface(IID_IPortIo, &io);
  line.Channel.PortIo = static_cast<IPortIo*>(io);
  if (io == nullptr) ClosePort(line);
  return io != nullptr;
}

bool OpenDevice(Line& line) {
  char deviceName[260];
  std::snprintf(deviceName, sizeof deviceName, "\\\\.\\%s", line.Channel.PortName);
  line.LastPortResult = line.Channel.PortObject->Open(deviceName);
  return !FAILED(line.LastPortResult);
}

/// None of these results matters: a port that cannot be set so still may work.
void ConfigureDevice(Line& line) {
  const ChannelRecord& channel = line.Channel;
  char mode[64];
  std::snprintf(mode, sizeof mode, "baud=%d data=8 parity=%s stop=1", static_cast<int>(channel.BaudRate), channel.ParityCode);
  line.LastPortResult = channel.PortObject->SetMode(mode);
  line.PauseAfterError = PauseForBaudRate(channel.BaudRate);
  line.LastPortResult = channel.PortIo->SetTimeouts(channel.PortTimeout, line.PauseAfterError);
  line.LastPortResult = channel.PortObject->SetBuffers(kPortBuffer, kPortBuffer);
}

}  // namespace

std::uint32_t PauseForBaudRate(std::uint32_t baudRate) {
  for (const PauseRow& row : kPauses) {
    if (row.baudRate == baudRate) return row.pauseMs;
  }
  return kUnknownBaudPauseMs;
}

std::uint32_t OpenPort(Line& line) {
  if (line.PortOpen != 0) return 1;
  ClosePort(line);  // what an opening that broke off has left
  if (!AcquirePort(line)) return 1;
  if (!OpenDevice(line)) {
    ReportEvent(line, kEventPortOpenFailed, 0);
    ClosePort(line);
    return 0;
  }
  ConfigureDevice(line);
  line.PortOpen = 1;
  return 1;
}

void ClosePort(Line& line) {
  ChannelRecord& channel = line.Channel;
  if (channel.PortIo != nullptr) channel.PortIo->Release();
  channel.PortIo = nullptr;
  if (channel.PortObject != nullptr) channel.PortObject->Release();
  channel.PortObject = nullptr;
  IObjectProvider* const provider = Provider(line);
  if (provider != nullptr && channel.PortCookie != 0) provider->ReleasePortObject(channel.PortCookie);
  channel.PortCookie = 0;
  line.PortOpen = 0;
}

void ApplyPortSettings(Line& line, HostContext* context, const PortSettings& settings) {
  ClosePort(line);
  line.HostContext = context;
  StoreSettings(line, settings);
  StoreFlag(line.Channel.ExchangeEnabled, 1);
  line.Channel.reserved172_ = 0;
}

}  // namespace ostrel
