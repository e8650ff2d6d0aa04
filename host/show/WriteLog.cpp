#include "host/show/WriteLog.h"

#include <fstream>

#include "host/session/Failure.h"
#include "host/show/JsonLines.h"
#include "platform/clock.h"
#include "platform/text.h"
#include "platform/user.h"

namespace ostrel::host {
namespace {

std::string Now() { return TimestampText(platform::UtcFileTime()); }

}  // namespace

WriteLog::WriteLog(const std::string& file) : file_(file) { Append({}); }

void WriteLog::Add(const WriteReport& report) { Append(LoggedWriteJson(Now(), platform::UserName(), report) + '\n'); }

void WriteLog::AddFrame(const std::string& channel, const std::string& request, const std::string& answer) const {
  Append(LoggedFrameJson(Now(), platform::UserName(), channel, request, answer) + '\n');
}

void WriteLog::Append(const std::string& line) const {
  std::ofstream file(platform::PathOf(file_), std::ios::binary | std::ios::app);
  file << line;
  file.close();
  if (!file) throw Failure(kExitOutput, file_ + ": the log of writes cannot be written (write_log names another file)");
}

}  // namespace ostrel::host
