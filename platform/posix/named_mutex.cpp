// A named mutex is a locked file in a folder of the user's own. The system drops the lock when its owner dies. The lock
// belongs to the handle, so the threads that share a handle take turns here first.
#include "platform/named_mutex.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "platform/text.h"

namespace ostrel::platform {
namespace {

/// File names end at 255 bytes; longer names keep their beginning and are told apart by a hash.
constexpr std::size_t kLongestName = 200;
constexpr char kHexDigits[] = "0123456789ABCDEF";

struct NamedMutex {
  std::string path;
  int file = -1;
  std::mutex guard;
  std::condition_variable freed;
  std::thread::id owner;
  std::uint32_t depth = 0;
};

std::string Hex(std::uint64_t value, int digits) {
  std::string text;
  while (digits-- > 0) text.push_back(kHexDigits[value >> (4 * digits) & 0xF]);
  return text;
}

bool IsPlain(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }

/// 64-bit FNV-1a.
std::uint64_t Hash(const std::string& text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return hash;
}

std::string FileNameOf(const std::string& name) {
  std::string escaped;
  for (const char c : name) escaped += IsPlain(c) ? std::string(1, c) : "%" + Hex(static_cast<unsigned char>(c), 2);
  if (escaped.size() <= kLongestName) return escaped + ".lock";
  return escaped.substr(0, kLongestName) + "-" + Hex(Hash(name), 16) + ".lock";
}

/// A folder that nobody else can have put there for us.
bool MakeOwnFolder(const std::string& path) {
  struct stat status {};
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return false;
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

/// Not by the environment: every process of the user must come to the same folder. Empty when there is none.
std::string OwnFolder() {
  for (const char* const parent : {"/dev/shm", "/tmp"}) {
    const std::string folder = std::string(parent) + "/ostrel-" + std::to_string(::geteuid());
    if (MakeOwnFolder(folder)) return folder;
  }
  return {};
}

int OpenLockFile(const std::string& path) { return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600); }

/// False when somebody removed the file: others would then lock a new one of the same name.
bool StillNamed(const NamedMutex& mutex) {
  struct stat opened {};
  struct stat named {};
  return ::fstat(mutex.file, &opened) == 0 && ::stat(mutex.path.c_str(), &named) == 0 && opened.st_ino == named.st_ino &&
         opened.st_dev == named.st_dev;
}

bool LockFile(NamedMutex& mutex) {
  for (;;) {
    if (::flock(mutex.file, LOCK_EX) != 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (StillNamed(mutex)) return true;
    static_cast<void>(OwnFolder());
    const int fresh = OpenLockFile(mutex.path);
    if (fresh < 0) return true;
    ::close(mutex.file);
    mutex.file = fresh;
  }
}

void GiveBack(NamedMutex& mutex) {
  mutex.owner = {};
  mutex.depth = 0;
  mutex.freed.notify_one();
}

NamedMutex* MutexOf(NamedMutexHandle handle) { return handle != kNoMutex ? static_cast<NamedMutex*>(handle) : nullptr; }

}  // namespace

NamedMutexHandle OpenNamedMutex(const OLECHAR* name) {
  if (name == nullptr) return kNoMutex;
  const std::string folder = OwnFolder();
  if (folder.empty()) return kNoMutex;
  const std::string path = folder + "/" + FileNameOf(OleToUtf8(name));
  const int file = OpenLockFile(path);
  if (file < 0) return kNoMutex;
  auto* const mutex = new NamedMutex;
  mutex->path = path;
  mutex->file = file;
  return mutex;
}

bool LockNamedMutex(NamedMutexHandle handle) {
  NamedMutex* const mutex = MutexOf(handle);
  if (mutex == nullptr) return false;
  const auto self = std::this_thread::get_id();
  std::unique_lock lock(mutex->guard);
  if (mutex->owner != self) {
    mutex->freed.wait(lock, [&] { return mutex->depth == 0; });
    mutex->owner = self;
  }
  if (mutex->depth++ > 0) return true;
  lock.unlock();
  if (LockFile(*mutex)) return true;
  lock.lock();
  GiveBack(*mutex);
  return false;
}

void UnlockNamedMutex(NamedMutexHandle handle) {
  NamedMutex* const mutex = MutexOf(handle);
  if (mutex == nullptr) return;
  const std::lock_guard lock(mutex->guard);
  if (mutex->owner != std::this_thread::get_id() || --mutex->depth > 0) return;
  ::flock(mutex->file, LOCK_UN);
  GiveBack(*mutex);
}

void CloseNamedMutex(NamedMutexHandle handle) {
  NamedMutex* const mutex = MutexOf(handle);
  if (mutex == nullptr) return;
  // Whoever waits for the removed file notices it, as StillNamed says, and goes on with a new one.
  if (::flock(mutex->file, LOCK_EX | LOCK_NB) == 0 && StillNamed(*mutex)) ::unlink(mutex->path.c_str());
  ::close(mutex->file);
  delete mutex;
}

}  // namespace ostrel::platform
