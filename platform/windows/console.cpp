#include "platform/console.h"

#include <windows.h>
// After it: it uses its types.
#include <shellapi.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <iostream>
#include <mutex>
#include <thread>

#include "platform/text.h"

namespace ostrel::platform {
namespace {

std::atomic<bool> interrupted{false};

BOOL WINAPI OnControl(DWORD) { return interrupted.exchange(true) ? FALSE : TRUE; }

// A read of the console or a pipe cannot be given up here, so a thread of its own makes it and is left behind at the end.
struct TypedLines {
  std::mutex mutex;
  std::condition_variable came;
  std::deque<std::string> lines;
  bool woken = false;
};

TypedLines& StartedLines() {
  static TypedLines* const typed = [] {
    auto* const made = new TypedLines;
    std::thread([made] {
      for (std::string line; std::getline(std::cin, line);) {
        const std::lock_guard lock(made->mutex);
        made->lines.push_back(line);
        made->came.notify_one();
      }
    }).detach();
    return made;
  }();
  return *typed;
}

}  // namespace

void CatchInterrupt() { SetConsoleCtrlHandler(OnControl, TRUE); }

bool Interrupted() { return interrupted; }

// The arguments of main have gone through the system's code page and may have lost characters; those of the system have not.
std::vector<std::string> Arguments(int, char**) {
  std::vector<std::string> texts;
  int count = 0;
  wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 1; i < count; ++i) texts.push_back(OleToUtf8(wide[i]));
  LocalFree(wide);
  return texts;
}

void PrepareConsole() {
  SetConsoleOutputCP(CP_UTF8);
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (GetConsoleMode(output, &mode) != 0) SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

bool OutputIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
}

// The runtime has no errno of its own for a pipe whose other end closes, and gives one of several.
bool OutputReaderHasGone(int) { return GetFileType(GetStdHandle(STD_OUTPUT_HANDLE)) == FILE_TYPE_PIPE; }

bool ErrorIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

TerminalSize OutputSize() {
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info) == 0) return {};
  return {.columns = static_cast<std::uint32_t>(info.srWindow.Right - info.srWindow.Left + 1),
          .rows = static_cast<std::uint32_t>(info.srWindow.Bottom - info.srWindow.Top + 1)};
}

bool LineInput::TakeBuffered(std::string& line) {
  TypedLines& typed = StartedLines();
  if (typed.lines.empty()) return false;
  line = typed.lines.front();
  if (!line.empty() && line.back() == '\r') line.pop_back();
  typed.lines.pop_front();
  return true;
}

LineInput::LineInput() = default;

LineInput::~LineInput() = default;

void LineInput::Wake() {
  TypedLines& typed = StartedLines();
  const std::lock_guard lock(typed.mutex);
  typed.woken = true;
  typed.came.notify_one();
}

bool LineInput::Take(std::string& line, std::uint32_t milliseconds) {
  TypedLines& typed = StartedLines();
  std::unique_lock lock(typed.mutex);
  typed.came.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return typed.woken || !typed.lines.empty(); });
  typed.woken = false;
  return TakeBuffered(line);
}

}  // namespace ostrel::platform
