#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "host/ports/SerialStream.h"
#include "platform/thread.h"

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
constexpr std::chrono::milliseconds kSendSlack{1000};

/// The quiet that the protocol asks for behind every answer.
constexpr std::size_t kQuietCharacters = 2;

std::string LastError() { return std::error_code(errno, std::system_category()).message(); }

/// Bits that a byte takes: start, eight of data, parity, stop.
std::int64_t BitsPerByte(Parity parity) { return parity == Parity::None ? 10 : 11; }

timespec Until(SteadyClock::time_point deadline) {
  const auto left = std::max(std::chrono::nanoseconds(deadline - SteadyClock::now()), std::chrono::nanoseconds(0));
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
  return {.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
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
  [[nodiscard]] std::chrono::nanoseconds Characters(std::size_t count) const {
    return count * BitsPerByte(mode_.parity) * std::chrono::nanoseconds(std::chrono::seconds(1)) / mode_.baud;
  }
  bool WaitFor(short events, SteadyClock::time_point deadline);
  std::size_t Take(std::uint8_t* buffer, std::size_t size, SteadyClock::time_point deadline);
  [[nodiscard]] bool IsSending() const;
  bool WaitUntilSent();
  bool Write(const std::uint8_t* bytes, std::size_t size);

  int descriptor_;
  LineMode mode_;
  bool failed_ = false;
  bool silent_ = false;                 // nothing came since the last request
  SteadyClock::time_point turn_;        // the line's own quiet after what came last is over
  SteadyClock::time_point left_;        // when the last request has left, if nothing holds it up
  SteadyClock::time_point mustBeSent_;  // and when it must have
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
    settings.c_cc[VMIN] = 1;  // so that a read that brings nothing tells of the other end
    settings.c_cc[VTIME] = 0;
    SetParity(settings, mode.parity);
    cfsetispeed(&settings, speed.code);
    cfsetospeed(&settings, speed.code);
    mode_ = mode;
    return tcsetattr(descriptor_, TCSANOW, &settings) == 0;
  }
  return false;
}

// Whether the descriptor is ready; a hang-up without anything left to read is a failed line.
bool SerialStream::WaitFor(short events, SteadyClock::time_point deadline) {
  for (;;) {
    pollfd waited = {.fd = descriptor_, .events = events, .revents = 0};
    const timespec left = Until(deadline);
    const int ready = ppoll(&waited, 1, &left, nullptr);
    if (ready < 0 && errno == EINTR) continue;
    if ((waited.revents & events) != 0) return true;
    if (ready != 0) failed_ = true;
    return false;
  }
}

std::size_t SerialStream::Take(std::uint8_t* buffer, std::size_t size, SteadyClock::time_point deadline) {
  while (!failed_ && WaitFor(POLLIN, deadline)) {
    const ssize_t count = read(descriptor_, buffer, size);
    if (count > 0) {
      silent_ = false;
      turn_ = SteadyClock::now() + Characters(kQuietCharacters);
      return static_cast<std::size_t>(count);
    }
    // Readable without a byte: the other end has gone.
    if (count == 0 || (errno != EAGAIN && errno != EINTR)) failed_ = true;
  }
  return 0;
}

// What the system still holds of a request is asked only when nothing has come for it: mostly the answer shows that it left.
std::size_t SerialStream::Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) {
  if (waitMs == 0) return Take(buffer, size, turn_);
  const std::chrono::milliseconds wait(waitMs);
  const std::size_t count = Take(buffer, size, std::max(SteadyClock::now(), left_) + wait);
  if (count != 0 || failed_ || !silent_ || !IsSending()) return count;
  if (!WaitUntilSent()) failed_ = true;
  return Take(buffer, size, SteadyClock::now() + wait);
}

bool SerialStream::IsSending() const {
  int queued = 0;
  return ioctl(descriptor_, TIOCOUTQ, &queued) == 0 && queued > 0;
}

bool SerialStream::WaitUntilSent() {
  while (IsSending()) {
    if (SteadyClock::now() >= mustBeSent_) return false;
    poll(nullptr, 0, 1);
  }
  return true;
}

bool SerialStream::Write(const std::uint8_t* bytes, std::size_t size) {
  std::size_t sent = 0;
  while (!failed_ && sent < size) {
    const ssize_t count = write(descriptor_, bytes + sent, size - sent);
    if (count > 0) {
      sent += static_cast<std::size_t>(count);
    } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
      failed_ = true;
    } else if (!WaitFor(POLLOUT, mustBeSent_)) {
      break;
    }
  }
  return sent == size;
}

// A device that does not take the bytes in twice their time is as good as gone: it has to be opened anew.
bool SerialStream::Send(const std::uint8_t* bytes, std::size_t size) {
  if (SteadyClock::now() < turn_) std::this_thread::sleep_until(turn_);
  left_ = SteadyClock::now() + Characters(size);
  mustBeSent_ = left_ + kSendSlack;
  silent_ = true;
  if (!Write(bytes, size)) failed_ = true;
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
  platform::WakePrecisely();  // pauses between frames are shorter than what the system may add to them
  return stream;
}

std::string DefaultSerialDevice(const std::string&) { return {}; }

}  // namespace ostrel::host
