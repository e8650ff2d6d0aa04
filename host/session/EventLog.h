// The plug-in's event lines, followed in the file that they are written to.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/session/Config.h"

namespace ostrel::host {

struct LogLine {
  std::string channel;  // port name, empty when the line names none of ours
  std::string text;     // UTF-8
};

class EventLog {
 public:
  /// Follows the configured file from its present end; without one, a file of our own for as long as this lives.
  explicit EventLog(const Config& config);
  ~EventLog();
  EventLog(const EventLog&) = delete;
  EventLog& operator=(const EventLog&) = delete;

  [[nodiscard]] const std::string& File() const { return file_; }
  /// A line of the host's own; it stands in no file.
  void Note(const std::string& text) { notes_.push_back({.channel = {}, .text = text}); }
  /// Notes and whole lines that came since the last call.
  [[nodiscard]] std::vector<LogLine> TakeNew();

 private:
  [[nodiscard]] LogLine Parse(const std::string& line) const;

  std::string file_;  // UTF-8
  std::filesystem::path path_;
  bool temporary_;
  std::vector<std::string> ports_;
  std::vector<LogLine> notes_;
  std::uint64_t taken_ = 0;  // bytes of the file
};

}  // namespace ostrel::host
