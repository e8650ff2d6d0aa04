// ostrel-host: loads the plug-in and drives it from the command line.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <sstream>

#include "host/program/CommandLine.h"
#include "host/session/NearNames.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

int ReportInternal(const char* what) {
  fmt::print(stderr, "{}{}\n", kInternalError, what);
  return kExitInternal;
}

// What escapes even the last handler, on a thread or out of a destructor.
[[noreturn]] void EndWithoutAbort() {
  ReportInternal("it cannot go on");
  std::_Exit(kExitInternal);
}

int RunGuarded(int count, char** arguments) {
  try {
    CommandLine line;
    return line.Run(platform::Arguments(count, arguments));
  } catch (const std::exception& error) {
    return ReportInternal(error.what());
  } catch (...) {
    return ReportInternal("unknown");
  }
}

}  // namespace
}  // namespace ostrel::host

int main(int count, char** arguments) {
  using namespace ostrel::host;
  std::set_terminate(EndWithoutAbort);
  ostrel::platform::PrepareConsole();
  ostrel::platform::CatchInterrupt();
  const int code = RunGuarded(count, arguments);
  const std::string problem = OutputProblem();
  if (problem.empty()) return code;
  fmt::print(stderr, "{}\n", problem);
  return kExitOutput;
}
