#include <windows.h>

#include <algorithm>

#include "host/ports/SerialStream.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

constexpr DWORD kSendSlackMs = 1000;
constexpr DWORD kDriverBuffer = 2000;

std::string LastError() { return "error " + std::to_string(GetLastError()); }

BYTE ParityCode(Parity parity) {
  switch (parity) {
    case Parity::Even:
      return EVENPARITY;
    case Parity::Odd:
      return ODDPARITY;
    case Parity::Mark:
      return MARKPARITY;
    case Parity::Space:
      return SPACEPARITY;
    case Parity::None:
      break;
  }
  return NOPARITY;
}

class SerialStream final : public ByteStream {
 public:
  explicit SerialStream(HANDLE handle) : handle_(handle) {}
  SerialStream(const SerialStream&) = delete;
  SerialStream& operator=(const SerialStream&) = delete;
  ~SerialStream() override { CloseHandle(handle_); }

  bool SetMode(const LineMode& mode) override;
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override;
  bool Send(const std::uint8_t* bytes, std::size_t size) override;
  bool Failed() const override { return failed_; }
  std::uint32_t OwnGapMs() const override { return kSerialGapMs; }

 private:
  std::size_t Queued();
  std::size_t ReadNow(std::uint8_t* buffer, std::size_t size);
  bool SetReadTimeout(std::uint32_t waitMs);
  bool WaitUntilSent(ULONGLONG deadline);

  HANDLE handle_;
  std::uint32_t baud_ = 9600;
  ULONGLONG came_ = 0;  // tick of what came last
  bool failed_ = false;
};

bool SerialStream::SetMode(const LineMode& mode) {
  DCB settings = {};
  settings.DCBlength = sizeof settings;
  if (GetCommState(handle_, &settings) == 0) return false;
  settings.BaudRate = mode.baud;
  settings.ByteSize = 8;
  settings.StopBits = ONESTOPBIT;
  settings.Parity = ParityCode(mode.parity);
  settings.fParity = mode.parity == Parity::None ? FALSE : TRUE;
  settings.fBinary = TRUE;
  settings.fOutxCtsFlow = FALSE;
  settings.fOutxDsrFlow = FALSE;
  settings.fDsrSensitivity = FALSE;
  settings.fOutX = FALSE;
  settings.fInX = FALSE;
  settings.fErrorChar = FALSE;
  settings.fNull = FALSE;
  settings.fAbortOnError = FALSE;
  settings.fDtrControl = DTR_CONTROL_ENABLE;
  settings.fRtsControl = RTS_CONTROL_ENABLE;
  baud_ = mode.baud;
  return SetCommState(handle_, &settings) != 0;
}

std::size_t SerialStream::Queued() {
  DWORD errors = 0;
  COMSTAT state = {};
  if (ClearCommError(handle_, &errors, &state) == 0) failed_ = true;
  return failed_ ? 0 : state.cbInQue;
}

std::size_t SerialStream::ReadNow(std::uint8_t* buffer, std::size_t size) {
  DWORD count = 0;
  if (ReadFile(handle_, buffer, static_cast<DWORD>(size), &count, nullptr) == 0) failed_ = true;
  if (count != 0) came_ = GetTickCount64();
  return failed_ ? 0 : count;
}

bool SerialStream::SetReadTimeout(std::uint32_t waitMs) {
  COMMTIMEOUTS timeouts = {};
  timeouts.ReadTotalTimeoutConstant = std::max<DWORD>(waitMs, 1);
  timeouts.WriteTotalTimeoutConstant = kSendSlackMs;
  timeouts.WriteTotalTimeoutMultiplier = CharactersMs(1, baud_);
  if (SetCommTimeouts(handle_, &timeouts) == 0) failed_ = true;
  return !failed_;
}

// One byte with the time-out, then what has queued meanwhile: no driver's reading of the interval time-outs matters.
std::size_t SerialStream::Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) {
  if (failed_ || size == 0) return 0;
  std::size_t count = 0;
  if (Queued() == 0) {
    if (failed_ || waitMs == 0 || !SetReadTimeout(waitMs)) return 0;
    count = ReadNow(buffer, 1);
    if (count == 0) return 0;
  }
  const std::size_t more = std::min(Queued(), size - count);
  if (more != 0) count += ReadNow(buffer + count, more);
  return count;
}

bool SerialStream::WaitUntilSent(ULONGLONG deadline) {
  for (;;) {
    DWORD errors = 0;
    COMSTAT state = {};
    if (ClearCommError(handle_, &errors, &state) == 0) return false;
    if (state.cbOutQue == 0) return true;
    if (GetTickCount64() >= deadline) return false;
    Sleep(1);
  }
}

bool SerialStream::Send(const std::uint8_t* bytes, std::size_t size) {
  // The quiet that the protocol asks for behind every answer.
  const DWORD quiet = CharactersMs(2, baud_);
  if (GetTickCount64() - came_ <= quiet) Sleep(quiet);
  const ULONGLONG deadline = GetTickCount64() + CharactersMs(static_cast<std::uint32_t>(size), baud_) + kSendSlackMs;
  DWORD sent = 0;
  if (failed_ || !SetReadTimeout(1)) return false;
  if (WriteFile(handle_, bytes, static_cast<DWORD>(size), &sent, nullptr) == 0 || sent != size || !WaitUntilSent(deadline))
    failed_ = true;
  return !failed_;
}

}  // namespace

std::unique_ptr<ByteStream> OpenSerial(const std::string& device, std::string& error) {
  const platform::OleString path = platform::Utf8ToOle(device);
  const HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    error = device + ": " + LastError();
    return nullptr;
  }
  auto stream = std::make_unique<SerialStream>(handle);
  if (!stream->SetMode({})) {
    error = device + ": not a serial line, " + LastError();
    return nullptr;
  }
  SetupComm(handle, kDriverBuffer, kDriverBuffer);
  PurgeComm(handle, PURGE_RXCLEAR | PURGE_TXCLEAR);
  return stream;
}

std::string DefaultSerialDevice(const std::string& port) { return R"(\\.\)" + port; }

}  // namespace ostrel::host
