// The event log: a text file to which every message is appended as one line, stamped with the local time. The host owns
// the object and the plug-in writes through it, so both are built from this header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/critical_section.h"
#include "platform/layout.h"
#include "platform/shared_file.h"

namespace ostrel {

/// One virtual entry stands in the place of the destructor, as in tags. 300 bytes in the 32-bit build.
class CLogFile final {
 public:
  /// Of the path (the system's own bytes) 259 characters are kept. A file found larger than `maxKilobytes` is deleted before
  /// the next line, so that 0 keeps the last line only.
  CLogFile(const char* path, std::uint32_t maxKilobytes, bool enabled);
  CLogFile(const CLogFile&) = delete;
  CLogFile& operator=(const CLogFile&) = delete;
  ~CLogFile() = default;

  /// Bit 0 of `flags` frees the memory as well.
  virtual void Destroy(std::uint32_t flags);

  CLogFile& SetEnabled(bool enabled);
  CLogFile& SetMaxSize(std::uint32_t kilobytes);

  /// "[ dd/mm/yyyy hh:mm:ss.mmm ] message"; the line is cut at 199 bytes.
  void WriteEvent(std::string_view message);
  /// The text as it is, with CR LF. 1 when written, 0 when disabled or the file could not be opened.
  int AppendLine(std::string_view text);

 private:
  friend struct LogFileLayout;
  void DeleteWhenTooLarge();

  platform::CriticalSection lock_;
  char fileName_[260] = {};
  std::uint32_t maxKilobytes_;
  std::uint32_t enabled_;
  platform::FileHandle file_ = platform::kNoFile;
};

static_assert(!platform::kHostLayout || sizeof(CLogFile) == 300);

}  // namespace ostrel
