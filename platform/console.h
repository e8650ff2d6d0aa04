// The terminal of a program that people run: a request to end, the window it may draw in, and lines that are typed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ostrel::platform {

/// From here on Ctrl-C and a polite request to end only set the flag that Interrupted reads; a second one ends the
/// process as the system has it.
void CatchInterrupt();
[[nodiscard]] bool Interrupted();

/// What stands behind the program's name on the command line, in UTF-8 on every system.
[[nodiscard]] std::vector<std::string> Arguments(int count, char** arguments);

/// Makes the console take UTF-8 and escape sequences.
void PrepareConsole();

struct TerminalSize {
  std::uint32_t columns = 80;
  std::uint32_t rows = 24;
};

/// Whether standard output is a terminal that a table can be redrawn on.
[[nodiscard]] bool OutputIsTerminal();
[[nodiscard]] TerminalSize OutputSize();

/// Whether standard output failed with this errno because who read it has gone, as `head` does.
[[nodiscard]] bool OutputReaderHasGone(int error);

/// Whether standard error is a terminal that a line can be redrawn on.
[[nodiscard]] bool ErrorIsTerminal();

/// Lines of standard input, without stopping for them. One at a time in a program.
class LineInput {
 public:
  LineInput();
  ~LineInput();
  LineInput(const LineInput&) = delete;
  LineInput& operator=(const LineInput&) = delete;

  /// Waits up to `milliseconds` for a whole line and takes it without its end; false when none came. Waits also when the
  /// input has ended, so that a loop around it does not spin.
  [[nodiscard]] bool Take(std::string& line, std::uint32_t milliseconds);
  /// Ends the wait of a Take that is under way, or of the next one. From any thread.
  void Wake();

 private:
  bool TakeBuffered(std::string& line);
  std::string buffer_;
  bool ended_ = false;
  int waker_ = -1;
};

}  // namespace ostrel::platform
