// The simulated line of the demonstration: ostrel-meter as a child process, and the configuration that polls it.
#pragma once

#include <string>

#include "host/session/Config.h"
#include "platform/process.h"

namespace ostrel::host {

class DemoLine {
 public:
  /// Starts the meters and waits until their line is there. Throws Failure.
  DemoLine();
  ~DemoLine();
  DemoLine(const DemoLine&) = delete;
  DemoLine& operator=(const DemoLine&) = delete;

  [[nodiscard]] Config MakeConfig() const;

 private:
  void WaitForLine();

  std::string folder_;
  std::string device_;
  platform::ChildProcess meters_;
};

}  // namespace ostrel::host
