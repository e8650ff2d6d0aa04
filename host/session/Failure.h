// Why a command ends early: an exit code and a message for people. Thrown inside ostrel-host only, never across the plug-in.
#pragma once

#include <stdexcept>
#include <string>

namespace ostrel::host {

enum ExitCode : int {
  kExitDone = 0,
  kExitUsage = 2,       // wrong usage or configuration
  kExitUnanswered = 3,  // a meter did not answer or refused
  kExitPort = 4,        // a port could not be opened
  kExitOutput = 5,      // results could not be written
  kExitInternal = 70,   // an error of the program itself
  kExitInterrupted = 130,
};

/// As --help lists them.
[[nodiscard]] std::string ExitCodeList();
/// "a meter did not answer or refused"
[[nodiscard]] std::string ExitCodeText(ExitCode code);

class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  [[nodiscard]] ExitCode Code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace ostrel::host
