// The developers' trace: lines filtered by channel and level, appended to a file that several processes may share.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>

#include "platform/critical_section.h"
#include "platform/named_mutex.h"
#include "platform/shared_file.h"

namespace ostrel {

/// Numbers of the channels. The write calls take them as an argument, instead of a call for each channel.
enum class TraceChannel : std::uint8_t { Da = 1, Hda = 2, Common = 3, DaTool = 4, HdaTool = 5 };

/// A pointer and a length from the task allocator: the host's and the plug-in's compiler need not agree on a string class.
struct TraceText {
  OLECHAR* text = nullptr;
  std::uint32_t length = 0;
};

class DebugTrace {
 public:
  DebugTrace();
  explicit DebugTrace(const OLECHAR* path);
  DebugTrace(const OLECHAR* path, const OLECHAR* settings);
  DebugTrace(const DebugTrace&) = delete;
  DebugTrace& operator=(const DebugTrace&) = delete;
  ~DebugTrace();

  /// Only the first path counts.
  void SetFile(const OLECHAR* path);
  /// "DBG_COMMON=2 FS=5": levels of the channels and the size limit in megabytes; what is not named goes back to its
  /// default (0 and 1024). A limit of 0 switches the file off.
  void ApplySettings(const OLECHAR* settings);

  [[nodiscard]] bool IsEnabled(TraceChannel channel, std::int8_t level) const;
  /// Non-zero when the line was written. Without a format: whether the channel is enabled at that level.
  int Write(TraceChannel channel, std::int8_t level, const char* format, ...) __attribute__((format(printf, 4, 5)));
  int WriteList(TraceChannel channel, std::int8_t level, const char* format, std::va_list arguments);

  /// The same by channel, as the host's other modules call it.
  int WriteCommon(std::int8_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));
  [[nodiscard]] bool IsCommonEnabled(std::int8_t level) const { return IsEnabled(TraceChannel::Common, level); }

 private:
  /// Places of the channels' levels in levels_.
  enum LevelPlace : std::uint8_t { kLevelDa, kLevelHda, kLevelDaTool, kLevelHdaTool, kLevelCommon, kLevelCount };
  struct LevelRow;
  static const LevelRow kLevelRows[kLevelCount];

  int WriteLine(const std::string& line);
  bool MakeRoom();
  bool Append(const std::string& line);

  platform::NamedMutexHandle mutex_ = platform::kNoMutex;
  platform::FileHandle file_ = platform::kNoFile;
  TraceText path_;
  TraceText settings_;
  std::uint32_t maxMegabytes_;
  std::atomic<std::uint8_t> levels_[kLevelCount] = {};  // asked before every line, without the lock
  platform::CriticalSection lock_;
  std::atomic<std::uint32_t> initialised_{0};
};

}  // namespace ostrel
