#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "host/ports/SerialStream.h"

namespace ostrel::host {
namespace {

using SteadyClock = std::chrono::steady_clock;

struct Speed {
  std::uint32_t baud;
  speed_t code;
};

constexpr Speed kSpeeds[] = {
    {300, B300},   {600, B600},     {1200, B1200},   {2400, B2400},   {4800, B4800},
    {9600, B9600}, {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

// What sending may take beyond the bytes' own time before the device counts as stuck.
constexpr std::uint32_t kSendSlackMs = 1000;

std::string LastError() { return std::error_code(errno, std::system_category()).message(); }

int MillisecondsUntil(SteadyClock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

void SetParity(termios& settings, Parity parity) {
  settings.c_cflag &= ~static_cast<tcflag_t>(PARENB | PARODD | CMSPAR);
  settings.c_iflag &= ~static_cast<tcflag_t>(INPCK);
  if (parity == Parity::None) return;
  settings.c_cflag |= PARENB;
  // A byte with a wrong parity arrives as 0, and the check of its frame fails. On a pseudo-terminal, which has no parity bits,
  // this flag is also all that the other end can see of the parity.
  settings.c_iflag |= INPCK;
  if (parity == Parity::Odd || parity == Parity::Mark) settings.c_cflag |= PARODD;
  if (parity == Parity::Mark || parity == Parity::Space) settings.c_cflag |= CMSPAR;
}

class SerialStream final : public ByteStream {
 public:
  explicit SerialStream(int descriptor) : descriptor_(descriptor) {}
  SerialStream(const SerialStream&) = delete;
  SerialStream& operator=(const SerialStream&) = delete;
  ~SerialStream() override {
    // A pseudo-terminal keeps the mark while its other end is open, and we could not come back.
    ioctl(descriptor_, TIOCNXCL);
    close(descriptor_);
  }

  bool SetMode(const LineMode& mode) override;
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override;
  bool Send(const std::uint8_t* bytes, std::size_t size) override;
  bool Failed() const override { return failed_; }
  std::uint32_t OwnGapMs() const override { return kSerialGapMs; }

 private:
  bool WaitFor(short events, SteadyClock::time_point deadline);
  bool WaitUntilSent(SteadyClock::time_point deadline);

  int descriptor_;
  std::uint32_t baud_ = 9600;
  bool failed_ = false;
};

bool SerialStream::SetMode(const LineMode& mode) {
  for (const Speed& speed : kSpeeds) {
    if (speed.baud != mode.baud) continue;
    termios settings = {};
    if (tcgetattr(descriptor_, &settings) != 0) return false;
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_iflag &= ~static_cast<tcflag_t>(IXOFF | IXANY);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    SetParity(settings, mode.parity);
    cfsetispeed(&settings, speed.code);
    cfsetospeed(&settings, speed.code);
    baud_ = mode.baud;
    return tcsetattr(descriptor_, TCSANOW, &settings) == 0;
  }
  return false;
}

// Whether the descriptor is ready; a hang-up without anything left to read is a failed line.
bool SerialStream::WaitFor(short events, SteadyClock::time_point deadline) {
  for (;;) {
    pollfd waited = {.fd = descriptor_, .events = events, .revents = 0};
    const int ready = poll(&waited, 1, MillisecondsUntil(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if ((waited.revents & events) != 0) return true;
    if (ready != 0) failed_ = true;
    return false;
  }
}

std::size_t SerialStream::Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) {
  const auto deadline = SteadyClock::now() + std::chrono::milliseconds(waitMs);
  while (!failed_ && WaitFor(POLLIN, deadline)) {
    const ssize_t count = read(descriptor_, buffer, size);
    if (count > 0) return static_cast<std::size_t>(count);
    // Readable without a byte: the other end has gone.
    if (count == 0 || (errno != EAGAIN && errno != EINTR)) failed_ = true;
  }
  return 0;
}

bool SerialStream::WaitUntilSent(SteadyClock::time_point deadline) {
  int queued = 0;
  while (ioctl(descriptor_, TIOCOUTQ, &queued) == 0 && queued > 0) {
    if (SteadyClock::now() >= deadline) return false;
    poll(nullptr, 0, 1);
  }
  return true;
}

bool SerialStream::Send(const std::uint8_t* bytes, std::size_t size) {
  const std::uint32_t allowedMs = CharactersMs(static_cast<std::uint32_t>(size), baud_) + kSendSlackMs;
  const auto deadline = SteadyClock::now() + std::chrono::milliseconds(allowedMs);
  std::size_t sent = 0;
  while (!failed_ && sent < size && WaitFor(POLLOUT, deadline)) {
    const ssize_t count = write(descriptor_, bytes + sent, size - sent);
    if (count > 0) sent += static_cast<std::size_t>(count);
    if (count < 0 && errno != EAGAIN && errno != EINTR) failed_ = true;
  }
  // A device that does not take the bytes in twice their time is as good as gone: it has to be opened anew.
  if (sent < size || !WaitUntilSent(deadline)) failed_ = true;
  return !failed_;
}

bool TakeAlone(int descriptor, std::string& error) {
  if (isatty(descriptor) == 0) {
    error = "not a serial line";
  } else if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    error = "in use by another program";
  } else if (ioctl(descriptor, TIOCEXCL) != 0) {
    error = LastError();
  } else {
    return true;
  }
  return false;
}

}  // namespace

std::unique_ptr<ByteStream> OpenSerial(const std::string& device, std::string& error) {
  const int descriptor = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) {
    error = device + ": " + LastError();
    return nullptr;
  }
  std::string problem;
  if (!TakeAlone(descriptor, problem)) {
    error = device + ": " + problem;
    close(descriptor);
    return nullptr;
  }
  auto stream = std::make_unique<SerialStream>(descriptor);
  if (!stream->SetMode({})) {
    error = device + ": " + LastError();
    return nullptr;
  }
  tcflush(descriptor, TCIOFLUSH);
  return stream;
}

std::string DefaultSerialDevice(const std::string&) { return {}; }

}  // namespace ostrel::host
