// Where a polling command shows what happens. Calls come one at a time.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/session/Channel.h"
#include "host/session/ClientWrite.h"
#include "host/session/EventLog.h"

namespace ostrel::host {

class Output {
 public:
  virtual ~Output() = default;
  virtual void Pass(const std::string& channel, const PassReport& report) = 0;
  virtual void Log(const LogLine& line) = 0;
  virtual void Write(const WriteReport& report) = 0;
};

/// Prints to standard output and flushes. What cannot be printed sets a mark, and the command ends as soon as it can.
void Print(std::string_view text);
[[nodiscard]] bool OutputGone();
/// Why the results are not whole; empty also when their reader went away, which is nobody's fault.
[[nodiscard]] std::string OutputProblem();

/// How a meter's line fares, in a few words.
[[nodiscard]] std::string LinkText(const LinkCounts& link);

/// Without `everyPass` a tag is shown when its value or quality has changed.
[[nodiscard]] std::unique_ptr<Output> MakeJsonOutput(bool everyPass);
[[nodiscard]] std::unique_ptr<Output> MakeLineOutput(bool everyPass);

}  // namespace ostrel::host
