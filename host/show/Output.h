// Where a polling command shows what happens. Calls come one at a time.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

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

/// Lets a tag through when its value or quality is not what it was.
class ChangeFilter {
 public:
  explicit ChangeFilter(bool everything) : everything_(everything) {}
  [[nodiscard]] bool Passes(const std::string& meter, std::uint32_t id, const TagReading& reading);

 private:
  bool everything_;
  std::map<std::pair<std::string, std::uint32_t>, std::pair<std::string, std::uint16_t>> last_;
};

[[nodiscard]] std::unique_ptr<Output> MakeJsonOutput(bool everyPass);
[[nodiscard]] std::unique_ptr<Output> MakeLineOutput(bool everyPass);

}  // namespace ostrel::host
