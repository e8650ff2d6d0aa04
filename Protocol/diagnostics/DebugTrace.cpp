#include "Protocol/diagnostics/DebugTrace.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "Protocol/diagnostics/TimeStamp.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kDefaultMegabytes = 1024;
constexpr std::int64_t kMegabyte = 1048576;
constexpr std::string_view kSizeKey = "FS=";
constexpr std::string_view kReserveEnding = "_reserv";

bool IsBlank(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

/// The decimal number that text begins with: blanks, a sign, digits; none is 0. Too large ones stop at the largest.
std::int32_t LeadingNumber(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t number = 0;
  for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
    number = std::min<std::int64_t>(number * 10 + (text.front() - '0'), std::numeric_limits<std::int32_t>::max());
  }
  return static_cast<std::int32_t>(negative ? -number : number);
}

/// The number behind a key's first occurrence anywhere in the text; negative ones do not count.
std::optional<std::uint32_t> SettingOf(std::string_view text, std::string_view key) {
  const std::size_t place = text.find(key);
  if (place == std::string_view::npos) return std::nullopt;
  const std::int32_t number = LeadingNumber(text.substr(place + key.size()));
  if (number < 0) return std::nullopt;
  return static_cast<std::uint32_t>(number);
}

std::basic_string_view<OLECHAR> View(const TraceText& text) { return {text.text, text.length}; }

void Assign(TraceText& target, std::basic_string_view<OLECHAR> text) {
  platform::TaskFree(target.text);
  target = {};
  auto* const copy = static_cast<OLECHAR*>(platform::TaskAlloc((text.size() + 1) * sizeof(OLECHAR)));
  if (copy == nullptr) return;
  text.copy(copy, text.size());
  copy[text.size()] = 0;
  target = {.text = copy, .length = static_cast<std::uint32_t>(text.size())};
}

/// Every process that traces into a file of this name takes the same mutex.
platform::OleString MutexName(std::basic_string_view<OLECHAR> path) {
  const std::size_t separator = path.rfind(platform::PathSeparator());
  return platform::OleString(separator == std::basic_string_view<OLECHAR>::npos ? path : path.substr(separator + 1));
}

platform::OleString ReservePath(const TraceText& path) {
  platform::OleString reserve(View(path));
  reserve.append(kReserveEnding.begin(), kReserveEnding.end());
  return reserve;
}

std::string Prefix() {
  char process[48];
  std::snprintf(process, sizeof process, "PID=%u TID=%d ", static_cast<unsigned>(platform::CurrentProcessId()),
                static_cast<int>(platform::CurrentThreadId()));
  return process + LocalTimeStamp();
}

__attribute__((format(printf, 2, 0))) void AppendFormatted(std::string& line, const char* format, std::va_list arguments) {
  std::va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length <= 0) return;
  std::vector<char> text(static_cast<std::size_t>(length) + 1);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  line.append(text.data(), static_cast<std::size_t>(length));
}

}  // namespace

struct DebugTrace::LevelRow {
  TraceChannel channel;
  LevelPlace place;
  std::string_view key;
};

const DebugTrace::LevelRow DebugTrace::kLevelRows[kLevelCount] = {
    {.channel = TraceChannel::Common, .place = kLevelCommon, .key = "DBG_COMMON="},
    {.channel = TraceChannel::Hda, .place = kLevelHda, .key = "DBG_HDA="},
    {.channel = TraceChannel::Da, .place = kLevelDa, .key = "DBG_DA="},
    {.channel = TraceChannel::HdaTool, .place = kLevelHdaTool, .key = "DBG_HDA_TOOL="},
    {.channel = TraceChannel::DaTool, .place = kLevelDaTool, .key = "DBG_DA_TOOL="},
};

DebugTrace::DebugTrace() : maxMegabytes_(kDefaultMegabytes) {
  platform::UseCp1251Locale();
  initialised_ = 1;
}

DebugTrace::DebugTrace(const OLECHAR* path) : DebugTrace() { SetFile(path); }

DebugTrace::DebugTrace(const OLECHAR* path, const OLECHAR* settings) : DebugTrace(path) { ApplySettings(settings); }

DebugTrace::~DebugTrace() {
  {
    const platform::CriticalSectionGuard guard(lock_);
    initialised_ = 0;
  }
  if (mutex_ != platform::kNoMutex) platform::CloseNamedMutex(mutex_);
  if (file_ != platform::kNoFile) platform::CloseSharedFile(file_);
  platform::TaskFree(path_.text);
  platform::TaskFree(settings_.text);
}

void DebugTrace::SetFile(const OLECHAR* path) {
  const platform::CriticalSectionGuard guard(lock_);
  if (path == nullptr || path_.length != 0) return;
  Assign(path_, path);
  if (path_.length == 0) return;
  mutex_ = platform::OpenNamedMutex(MutexName(path).c_str());
}

// New levels replace the old ones without a moment of reset ones between them.
void DebugTrace::ApplySettings(const OLECHAR* settings) {
  const platform::OleString text = settings != nullptr ? settings : platform::OleString();
  const std::string searched = platform::OleToCp1251(text);
  const platform::CriticalSectionGuard guard(lock_);
  Assign(settings_, text);
  maxMegabytes_ = SettingOf(searched, kSizeKey).value_or(kDefaultMegabytes);
  for (const LevelRow& row : kLevelRows) {
    levels_[row.place] = static_cast<std::uint8_t>(SettingOf(searched, row.key).value_or(0));
  }
}

// The configured level is unsigned and the message's signed, so that levels 0 and below always pass.
bool DebugTrace::IsEnabled(TraceChannel channel, std::int8_t level) const {
  for (const LevelRow& row : kLevelRows) {
    if (row.channel == channel) return int{level} <= int{levels_[row.place].load(std::memory_order_relaxed)};
  }
  return false;
}

int DebugTrace::Write(TraceChannel channel, std::int8_t level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int result = WriteList(channel, level, format, arguments);
  va_end(arguments);
  return result;
}

int DebugTrace::WriteCommon(std::int8_t level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int result = WriteList(TraceChannel::Common, level, format, arguments);
  va_end(arguments);
  return result;
}

int DebugTrace::WriteList(TraceChannel channel, std::int8_t level, const char* format, std::va_list arguments) {
  if (initialised_ == 0 || !IsEnabled(channel, level)) return 0;
  if (format == nullptr) return 1;
  const platform::CriticalSectionGuard guard(lock_);
  if (path_.length == 0) return 0;
  std::string line = Prefix();
  AppendFormatted(line, format, arguments);
  line += "\r\n";
  return WriteLine(line);
}

/// Size check, setting aside and appending happen while the mutex is held, so that lines of all processes stay whole.
int DebugTrace::WriteLine(const std::string& line) {
  const bool locked = platform::LockNamedMutex(mutex_);
  const bool written = MakeRoom() && Append(line);
  if (locked) platform::UnlockNamedMutex(mutex_);
  return written ? 1 : 0;
}

/// Sets a file over the limit aside; false when nothing is to be written.
bool DebugTrace::MakeRoom() {
  if (maxMegabytes_ == 0) return false;
  file_ = platform::OpenSharedFile(path_.text);
  if (file_ == platform::kNoFile) return false;
  const std::int64_t size = platform::SharedFileSize(file_);
  platform::CloseSharedFile(file_);
  file_ = platform::kNoFile;
  if (size <= maxMegabytes_ * kMegabyte) return true;
  const platform::OleString reserve = ReservePath(path_);
  platform::DeleteSharedFile(reserve.c_str());
  platform::RenameSharedFile(path_.text, reserve.c_str());
  return true;
}

bool DebugTrace::Append(const std::string& line) {
  file_ = platform::OpenSharedFile(path_.text);
  if (file_ == platform::kNoFile) return false;
  const bool written = platform::AppendToSharedFile(file_, line);
  platform::CloseSharedFile(file_);
  file_ = platform::kNoFile;
  return written;
}

}  // namespace ostrel
