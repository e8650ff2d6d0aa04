// The log of writes: whatever a person had sent to a meter to change it, a JSON object a line, in a file that is only appended
// to.
#pragma once

#include <string>

#include "host/session/ClientWrite.h"

namespace ostrel::host {

class WriteLog {
 public:
  /// Opens the file, so that a write that could not be recorded is not begun. Throws Failure (output).
  explicit WriteLog(const std::string& file);

  void Add(const WriteReport& report);
  /// A raw frame; both as hexadecimal text, the answer empty after silence.
  void AddFrame(const std::string& channel, const std::string& request, const std::string& answer) const;

 private:
  void Append(const std::string& line) const;

  std::string file_;  // UTF-8
};

}  // namespace ostrel::host
