// Where a polling command shows what happens. Calls come one at a time.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/session/Channel.h"
#include "host/session/ClientWrite.h"
#include "host/session/EventLog.h"
#include "host/session/Failure.h"

namespace ostrel::host {

class Output {
 public:
  virtual ~Output() = default;
  virtual void Pass(const std::string& channel, const PassReport& report) = 0;
  virtual void Log(const LogLine& line) = 0;
  virtual void Write(const WriteReport& report) = 0;
  /// A write that was asked for and not begun.
  virtual void Refused(const Failure& failure);
  /// A line that was typed; true when it only was about what is shown.
  [[nodiscard]] virtual bool Typed(const std::string& line);
};

/// Prints to standard output and flushes. What cannot be printed sets a mark, and the command ends as soon as it can.
void Print(std::string_view text);
[[nodiscard]] bool OutputGone();
/// Why the results are not whole; empty also when their reader went away, which is nobody's fault.
[[nodiscard]] std::string OutputProblem();

/// Says to people why a command does not end well; with --json its last line says so too.
void Complain(const std::string& text);
/// All of them so far, in one line.
[[nodiscard]] std::string Complaints();

/// How a meter's line fares, in a few words.
[[nodiscard]] std::string LinkText(const LinkCounts& link);

/// Without `everyPass` a tag is shown when its value or quality has changed.
[[nodiscard]] std::unique_ptr<Output> MakeJsonOutput(bool everyPass);
[[nodiscard]] std::unique_ptr<Output> MakeLineOutput(bool everyPass);

}  // namespace ostrel::host
