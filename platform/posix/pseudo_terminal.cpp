#include "platform/pseudo_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace ostrel::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kUsPerSecond = 1'000'000;
constexpr std::int64_t kNsPerUs = 1000;

std::string LastError() { return std::generic_category().message(errno); }

bool SetRaw(int terminal) {
  termios settings{};
  if (tcgetattr(terminal, &settings) != 0) return false;
  cfmakeraw(&settings);
  return tcsetattr(terminal, TCSANOW, &settings) == 0;
}

void CloseDescriptor(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

/// A link to nothing, or to a terminal: the number of one that is gone may be another's by now.
bool IsLeftBehind(const fs::path& path) {
  std::error_code ignored;
  if (!fs::is_symlink(fs::symlink_status(path, ignored))) return false;
  const std::string target = fs::read_symlink(path, ignored).string();
  return target.starts_with("/dev/pts/") || !fs::exists(path, ignored);
}

bool MakeLink(const std::string& target, const std::string& path, std::string& error) {
  std::error_code failure;
  if (IsLeftBehind(path)) fs::remove(path, failure);
  fs::create_symlink(target, path, failure);
  if (failure) error = path + ": " + failure.message();
  return !failure;
}

}  // namespace

bool PseudoTerminal::Open(const std::string& path, std::string& error) {
  Close();
  char name[128];
  controller_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (controller_ < 0 || grantpt(controller_) != 0 || unlockpt(controller_) != 0 ||
      ptsname_r(controller_, name, sizeof name) != 0 || (terminal_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC)) < 0 ||
      !SetRaw(terminal_) || fcntl(controller_, F_SETFL, O_NONBLOCK) != 0) {
    error = "no pseudo-terminal: " + LastError();
    Close();
    return false;
  }
  if (!MakeLink(name, path, error)) {
    Close();
    return false;
  }
  path_ = path;
  target_ = name;
  return true;
}

void PseudoTerminal::Close() {
  std::error_code ignored;
  if (!path_.empty() && fs::read_symlink(path_, ignored) == target_) fs::remove(path_, ignored);
  path_.clear();
  CloseDescriptor(terminal_);
  CloseDescriptor(controller_);
}

std::size_t PseudoTerminal::Read(std::span<std::uint8_t> buffer, std::chrono::microseconds limit) {
  // Someone who took the terminal for himself alone may have gone without giving it free, which his closing does not do
  // while this side holds it open.
  ioctl(terminal_, TIOCNXCL);
  pollfd waiting{.fd = controller_, .events = POLLIN, .revents = 0};
  const timespec wait{.tv_sec = limit.count() / kUsPerSecond, .tv_nsec = limit.count() % kUsPerSecond * kNsPerUs};
  if (ppoll(&waiting, 1, &wait, nullptr) <= 0) return 0;
  const ssize_t count = read(controller_, buffer.data(), buffer.size());
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

// A pseudo-terminal drops the flag that turns parity on and keeps the one that has it checked.
std::optional<TerminalMode> PseudoTerminal::OtherEnd() const {
  static constexpr struct {
    speed_t code;
    std::uint32_t baud;
  } kSpeeds[] = {{B300, 300},   {B600, 600},     {B1200, 1200},   {B2400, 2400},   {B4800, 4800},
                 {B9600, 9600}, {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200}};
  termios settings{};
  if (tcgetattr(terminal_, &settings) != 0) return std::nullopt;
  for (const auto& speed : kSpeeds) {
    if (speed.code != cfgetospeed(&settings)) continue;
    return TerminalMode{.baud = speed.baud, .parity = (settings.c_iflag & INPCK) != 0, .odd = (settings.c_cflag & PARODD) != 0};
  }
  return std::nullopt;
}

void PseudoTerminal::Write(std::span<const std::uint8_t> bytes) {
  const ssize_t written = write(controller_, bytes.data(), bytes.size());
  static_cast<void>(written);
}

}  // namespace ostrel::platform
