#include "platform/shared_file.h"

#include <algorithm>

namespace ostrel::platform {
namespace {

constexpr DWORD kAccess = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kSharing = FILE_SHARE_READ | FILE_SHARE_WRITE;

/// One WriteFile takes a 32-bit count.
constexpr std::size_t kPiece = std::size_t{1} << 30;

}  // namespace

FileHandle OpenSharedFile(const char* path) {
  return ::CreateFileA(path, kAccess, kSharing, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

FileHandle OpenSharedFile(const OLECHAR* path) {
  return ::CreateFileW(path, kAccess, kSharing, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void CloseSharedFile(FileHandle file) {
  if (file != kNoFile) ::CloseHandle(file);
}

std::int64_t SharedFileSize(FileHandle file) {
  LARGE_INTEGER size{};
  return ::GetFileSizeEx(file, &size) ? size.QuadPart : -1;
}

bool AppendToSharedFile(FileHandle file, std::string_view bytes) {
  if (!::SetFilePointerEx(file, LARGE_INTEGER{}, nullptr, FILE_END)) return false;
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto count = static_cast<DWORD>(std::min(bytes.size(), kPiece));
    if (!::WriteFile(file, bytes.data(), count, &written, nullptr) || written == 0) return false;
    bytes.remove_prefix(written);
  }
  return true;
}

bool DeleteSharedFile(const char* path) { return ::DeleteFileA(path) != 0; }

bool DeleteSharedFile(const OLECHAR* path) { return ::DeleteFileW(path) != 0; }

bool RenameSharedFile(const OLECHAR* from, const OLECHAR* to) { return ::MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING) != 0; }

OLECHAR PathSeparator() { return L'\\'; }

}  // namespace ostrel::platform
