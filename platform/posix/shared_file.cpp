#include "platform/shared_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/text.h"

namespace ostrel::platform {
namespace {

FileHandle HandleOf(int descriptor) { return reinterpret_cast<FileHandle>(static_cast<std::intptr_t>(descriptor)); }

int DescriptorOf(FileHandle file) { return static_cast<int>(reinterpret_cast<std::intptr_t>(file)); }

std::string Utf8Path(const OLECHAR* path) { return path != nullptr ? OleToUtf8(path) : std::string(); }

}  // namespace

FileHandle OpenSharedFile(const char* path) {
  if (path == nullptr) return kNoFile;
  return HandleOf(::open(path, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
}

FileHandle OpenSharedFile(const OLECHAR* path) { return OpenSharedFile(Utf8Path(path).c_str()); }

void CloseSharedFile(FileHandle file) {
  if (file != kNoFile) ::close(DescriptorOf(file));
}

std::int64_t SharedFileSize(FileHandle file) {
  struct stat status {};
  return ::fstat(DescriptorOf(file), &status) == 0 ? static_cast<std::int64_t>(status.st_size) : -1;
}

bool AppendToSharedFile(FileHandle file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(DescriptorOf(file), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool DeleteSharedFile(const char* path) { return ::unlink(path) == 0; }

bool DeleteSharedFile(const OLECHAR* path) { return DeleteSharedFile(Utf8Path(path).c_str()); }

bool RenameSharedFile(const OLECHAR* from, const OLECHAR* to) {
  return std::rename(Utf8Path(from).c_str(), Utf8Path(to).c_str()) == 0;
}

OLECHAR PathSeparator() { return u'/'; }

}  // namespace ostrel::platform
