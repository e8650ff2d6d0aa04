// A file that is opened for one line and closed again, so that people and other processes may read, move or delete it
// at any time. Paths are the system's own bytes (UTF-8 on Linux, the system code page on Windows) or wide characters.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/com.h"

namespace ostrel::platform {

/// The system's file handle; kNoFile when none is open. Pointer-sized, as the host's records hold it.
using FileHandle = void*;
inline const FileHandle kNoFile = reinterpret_cast<FileHandle>(static_cast<std::intptr_t>(-1));

/// Opens for reading and writing, shared with readers and writers, creating the file when it is missing. kNoFile on failure.
[[nodiscard]] FileHandle OpenSharedFile(const char* path);
[[nodiscard]] FileHandle OpenSharedFile(const OLECHAR* path);
void CloseSharedFile(FileHandle file);

/// Size in bytes, or -1 when it cannot be told.
[[nodiscard]] std::int64_t SharedFileSize(FileHandle file);

/// Writes behind the last byte; false when not everything was written.
[[nodiscard]] bool AppendToSharedFile(FileHandle file, std::string_view bytes);

bool DeleteSharedFile(const char* path);
bool DeleteSharedFile(const OLECHAR* path);
bool RenameSharedFile(const OLECHAR* from, const OLECHAR* to);

/// The separator before a file's own name.
[[nodiscard]] OLECHAR PathSeparator();

}  // namespace ostrel::platform
