#include "host/show/ProgressBar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "platform/clock.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

constexpr const char* kClearLine = "\r\x1b[K";
constexpr std::size_t kBarWidth = 24;
/// Between two lines where no bar can be drawn.
constexpr std::uint32_t kLineStepMs = 10000;

}  // namespace

std::string ProgressText(const std::string& what, std::size_t done, std::size_t expected, std::uint32_t elapsedMs) {
  if (expected == 0) return fmt::format("{}: listing", what);
  std::string text = fmt::format("{}: {} of {}", what, done, expected);
  if (done == 0 || done >= expected) return text;
  const std::uint64_t leftSeconds = std::uint64_t{elapsedMs} * (expected - done) / done / 1000;
  return text + fmt::format(", {}:{:02} left", leftSeconds / 60, leftSeconds % 60);
}

ProgressBar::ProgressBar() : visible_(platform::ErrorIsTerminal()), said_(platform::TickCount()) {}

void ProgressBar::Begin(const std::string& what) {
  what_ = what;
  begun_ = platform::TickCount();
}

void ProgressBar::Show(std::size_t done, std::size_t expected) {
  if (!visible_) return ShowLine(done, expected);
  const std::size_t filled = expected == 0 ? 0 : std::min(done, expected) * kBarWidth / expected;
  fmt::print(stderr, "{}[{}{}] {}", kClearLine, std::string(filled, '#'), std::string(kBarWidth - filled, '.'),
             ProgressText(what_, done, expected, platform::TickCount() - begun_));
  std::fflush(stderr);
  shown_ = true;
}

// A log is not filled with what a bar would redraw.
void ProgressBar::ShowLine(std::size_t done, std::size_t expected) {
  const std::uint32_t now = platform::TickCount();
  if (now - said_ < kLineStepMs) return;
  said_ = now;
  fmt::print(stderr, "{}\n", ProgressText(what_, done, expected, now - begun_));
}

void ProgressBar::Hide() {
  if (!shown_) return;
  fmt::print(stderr, "{}", kClearLine);
  std::fflush(stderr);
  shown_ = false;
}

}  // namespace ostrel::host
