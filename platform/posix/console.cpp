#include "platform/console.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace ostrel::platform {
namespace {

// Set by a signal and asked by every thread.
std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void OnSignal(int) { interrupted = true; }

// A background job that reads its terminal is stopped by the system.
bool MayReadInput() { return isatty(STDIN_FILENO) == 0 || tcgetpgrp(STDIN_FILENO) == getpgrp(); }

}  // namespace

void CatchInterrupt() {
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
}

bool Interrupted() { return interrupted; }

std::vector<std::string> Arguments(int count, char** arguments) { return {arguments + 1, arguments + count}; }

void PrepareConsole() { std::signal(SIGPIPE, SIG_IGN); }

bool OutputIsTerminal() { return isatty(STDOUT_FILENO) != 0; }

bool OutputReaderHasGone(int error) { return error == EPIPE; }

bool ErrorIsTerminal() { return isatty(STDERR_FILENO) != 0; }

TerminalSize OutputSize() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {};
  return {.columns = size.ws_col, .rows = size.ws_row};
}

bool LineInput::TakeBuffered(std::string& line) {
  const std::size_t end = buffer_.find('\n');
  if (end == std::string::npos) return false;
  line = buffer_.substr(0, end);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  buffer_.erase(0, end + 1);
  return true;
}

LineInput::LineInput() : waker_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

LineInput::~LineInput() { close(waker_); }

void LineInput::Wake() { eventfd_write(waker_, 1); }

bool LineInput::Take(std::string& line, std::uint32_t milliseconds) {
  if (TakeBuffered(line)) return true;
  const bool readable = !ended_ && MayReadInput();
  pollfd waited[] = {{.fd = waker_, .events = POLLIN, .revents = 0},
                     {.fd = readable ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0}};
  if (poll(waited, 2, static_cast<int>(milliseconds)) <= 0) return false;
  eventfd_t woken = 0;
  if (waited[0].revents != 0) eventfd_read(waker_, &woken);
  if (waited[1].revents == 0) return false;
  char bytes[512];
  const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
  if (count > 0) {
    buffer_.append(bytes, static_cast<std::size_t>(count));
  } else if (count == 0 || errno != EINTR) {
    ended_ = true;
    if (!buffer_.empty()) buffer_ += '\n';
  }
  return TakeBuffered(line);
}

}  // namespace ostrel::platform
