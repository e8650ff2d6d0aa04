#include "Protocol/diagnostics/CLogFile.h"

#include <cstring>
#include <new>
#include <string>

#include "Protocol/diagnostics/TimeStamp.h"

namespace ostrel {
namespace {

constexpr std::size_t kLongestLine = 199;
constexpr std::int64_t kKilobyte = 1024;

}  // namespace

CLogFile::CLogFile(const char* path, std::uint32_t maxKilobytes, bool enabled)
    : maxKilobytes_(maxKilobytes), enabled_(enabled ? 1 : 0) {
  if (path != nullptr) std::memcpy(fileName_, path, strnlen(path, sizeof fileName_ - 1));
}

void CLogFile::Destroy(std::uint32_t flags) {
  this->CLogFile::~CLogFile();
  if ((flags & 1U) != 0) ::operator delete(static_cast<void*>(this));
}

CLogFile& CLogFile::SetEnabled(bool enabled) {
  const platform::CriticalSectionGuard guard(lock_);
  enabled_ = enabled ? 1 : 0;
  return *this;
}

CLogFile& CLogFile::SetMaxSize(std::uint32_t kilobytes) {
  const platform::CriticalSectionGuard guard(lock_);
  maxKilobytes_ = kilobytes;
  return *this;
}

void CLogFile::WriteEvent(std::string_view message) {
  std::string line = LocalTimeStamp();
  line += message;
  if (line.size() > kLongestLine) line.resize(kLongestLine);
  AppendLine(line);
}

int CLogFile::AppendLine(std::string_view text) {
  const platform::CriticalSectionGuard guard(lock_);
  if (enabled_ == 0) return 0;
  DeleteWhenTooLarge();
  file_ = platform::OpenSharedFile(fileName_);
  if (file_ == platform::kNoFile) return 0;
  std::string line(text);
  line += "\r\n";
  const bool written = platform::AppendToSharedFile(file_, line);
  platform::CloseSharedFile(file_);
  file_ = platform::kNoFile;
  return written ? 1 : 0;
}

/// A size that cannot be told is -1 and deletes nothing.
void CLogFile::DeleteWhenTooLarge() {
  file_ = platform::OpenSharedFile(fileName_);
  if (file_ == platform::kNoFile) return;
  const std::int64_t size = platform::SharedFileSize(file_);
  platform::CloseSharedFile(file_);
  file_ = platform::kNoFile;
  if (size > maxKilobytes_ * kKilobyte) platform::DeleteSharedFile(fileName_);
}

}  // namespace ostrel
