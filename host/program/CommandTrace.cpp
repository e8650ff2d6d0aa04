// ostrel-host trace: a copy of a debug trace without the meters' passwords.
#include <filesystem>
#include <fstream>
#include <functional>

#include "host/program/Commands.h"
#include "host/program/TraceCopy.h"
#include "host/show/Output.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

void CopyTo(std::istream& trace, const std::function<void(const std::string&)>& take) {
  TraceCopy copy;
  for (std::string line; std::getline(trace, line) && !OutputGone();) take(copy.Line(line) + '\n');
}

void WriteCopy(std::istream& trace, const TraceOptions& options) {
  const std::filesystem::path target = platform::PathOf(options.output);
  std::error_code none;
  if (std::filesystem::equivalent(platform::PathOf(options.file), target, none)) {
    throw Failure(kExitUsage, options.output + ": is the trace itself");
  }
  std::ofstream file(target, std::ios::binary);
  CopyTo(trace, [&file](const std::string& line) { file << line; });
  file.close();
  if (!file) throw Failure(kExitOutput, options.output + ": cannot be written");
}

}  // namespace

ExitCode CommandTrace(const TraceOptions& options) {
  std::error_code none;
  std::ifstream trace(platform::PathOf(options.file), std::ios::binary);
  if (!trace || std::filesystem::is_directory(platform::PathOf(options.file), none)) {
    throw Failure(kExitUsage, options.file + ": cannot be read");
  }
  if (options.output.empty()) {
    CopyTo(trace, [](const std::string& line) { Print(line); });
  } else {
    WriteCopy(trace, options);
  }
  return kExitDone;
}

}  // namespace ostrel::host
