#include "host/session/EventLog.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "host/session/Failure.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace ostrel::host {
namespace {

std::uint64_t SizeOf(const std::filesystem::path& file) {
  std::error_code failed;
  const std::uintmax_t size = std::filesystem::file_size(file, failed);
  return failed ? 0 : size;
}

std::string TemporaryFile() {
  std::error_code failed;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(failed);
  const std::u8string file = (folder / fmt::format("ostrel-host-{}.log", platform::CurrentProcessId())).u8string();
  const std::string utf8(file.begin(), file.end());
  if (!platform::Utf8ToSystemPath(utf8))
    throw Failure(kExitUsage, utf8 + ": has a character that this system's code page lacks; name another with log.file");
  return utf8;
}

}  // namespace

EventLog::EventLog(const Config& config) : file_(config.logFile), temporary_(config.logFile.empty()) {
  if (temporary_) file_ = TemporaryFile();
  for (const ChannelConfig& channel : config.channels) ports_.push_back(channel.port);
  path_ = platform::PathOf(file_);
  taken_ = SizeOf(path_);
}

EventLog::~EventLog() {
  std::error_code ignored;
  if (temporary_) std::filesystem::remove(path_, ignored);
}

LogLine EventLog::Parse(const std::string& line) const {
  LogLine parsed{.channel = {}, .text = platform::Cp1251ToUtf8(line)};
  const std::size_t stamp = parsed.text.find("] ");
  const std::string message = stamp == std::string::npos ? parsed.text : parsed.text.substr(stamp + 2);
  for (const std::string& port : ports_) {
    if (message.starts_with(port + ' ')) parsed.channel = port;
  }
  return parsed;
}

std::vector<LogLine> EventLog::TakeNew() {
  std::vector<LogLine> lines = std::exchange(notes_, {});
  const std::uint64_t size = SizeOf(path_);
  // Over its limit the file is deleted and begins anew.
  if (size < taken_) taken_ = 0;
  if (size == taken_) return lines;
  std::ifstream file(path_, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(taken_));
  for (std::string line; std::getline(file, line) && !file.eof();) {
    taken_ += line.size() + 1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(Parse(line));
  }
  return lines;
}

}  // namespace ostrel::host
