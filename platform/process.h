// A child process that lives no longer than its owner.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ostrel::platform {

class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  /// Asks the child to end, waits for it, and after two seconds ends it.
  ~ChildProcess();

  /// Starts a program by its UTF-8 path with arguments; its standard output goes nowhere. False with a reason on failure.
  [[nodiscard]] bool Start(const std::string& program, const std::vector<std::string>& arguments, std::string& error);
  [[nodiscard]] bool Running();

 private:
  /// Process id, or the system's handle; 0 for none.
  std::intptr_t process_ = 0;
};

/// Whether a simulated line can be a pseudo-terminal here.
[[nodiscard]] bool HasPseudoTerminals();

/// File name of a program by its plain name.
[[nodiscard]] std::string ProgramFileName(const std::string& name);

}  // namespace ostrel::platform
