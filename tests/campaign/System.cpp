// What platform/ asks of the system, for the campaign: threads and locks are the scheduler's, files lie in memory, and memory,
// files and threads can be told to fail. The linker finds these before it looks into the platform library.
#include "tests/campaign/System.h"

#include <unistd.h>

#include <cstdlib>
#include <map>
#include <new>

#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/shared_file.h"
#include "platform/thread.h"
#include "tests/campaign/Plants.h"
#include "tests/campaign/Scheduler.h"

namespace ostrel::campaign {
namespace {

Drill memory;
Drill calls;
int outside = 0;  // depth of OwnWork
std::size_t blocks = 0;
std::uint32_t fired = 0;

struct MemoryFile {
  std::string bytes;
  std::function<void(std::string_view)> reader;
};
std::map<std::string, MemoryFile>& Files() {
  static std::map<std::string, MemoryFile> files;
  return files;
}

bool Fails(Drill& drill) {
  const Scheduler* const scheduler = Scheduler::Current();
  if (drill.left == 0 || outside > 0 || scheduler == nullptr || scheduler->Self() != drill.thread) return false;
  if (--drill.left != 0) return false;
  ++fired;
  return true;
}

void* Take(std::size_t bytes) {
  ++blocks;
  return std::malloc(bytes == 0 ? 1 : bytes);
}

void Give(void* memoryBlock) {
  if (memoryBlock == nullptr) return;
  --blocks;
  std::free(memoryBlock);
}

}  // namespace

OwnWork::OwnWork() { ++outside; }
OwnWork::~OwnWork() { --outside; }

Drill& MemoryDrill() { return memory; }
Drill& CallDrill() { return calls; }
std::uint32_t DrillsFired() { return fired; }

void ReadLog(const std::string& path, std::function<void(std::string_view)> reader) { Files()[path].reader = std::move(reader); }
void ForgetSystem() {
  Files().clear();
  memory = calls = {};
}

std::size_t BlocksInUse() { return blocks; }

std::int64_t VirtualTime::Start() const { return start_; }

std::uint32_t VirtualTime::TickCount() {
  auto& scheduler = *Scheduler::Current();
  scheduler.Look();
  const std::int64_t jumped = Planted(Plant::WallClockDeadline) ? jump_ : 0;
  return startTick_ + static_cast<std::uint32_t>(scheduler.Elapsed() + jumped);
}

std::int64_t VirtualTime::UtcMilliseconds() { return True() + jump_; }

std::int64_t VirtualTime::True() const { return start_ + Scheduler::Current()->Elapsed(); }

void VirtualTime::Sleep(std::uint32_t milliseconds) { Scheduler::Current()->Sleep(milliseconds); }

}  // namespace ostrel::campaign

namespace ostrel::platform {

using campaign::Scheduler;

void FairSection::Enter() { Scheduler::Current()->Enter(this); }
void FairSection::Leave() { Scheduler::Current()->Leave(this); }
std::uint64_t FairSection::Waiters() { return Scheduler::Current()->Waiters(this); }

ThreadHandle StartThread(ThreadProcedure procedure, void* argument, std::uint32_t& id) {
  if (campaign::Fails(campaign::calls)) return nullptr;
  return Scheduler::Current()->Start("poll thread", [procedure, argument, &id] {
    id = Scheduler::Current()->Self();
    procedure(argument);
  });
}

void JoinThread(ThreadHandle thread) {
  if (thread != nullptr) Scheduler::Current()->Join(static_cast<campaign::Fibre*>(thread));
}

std::uint32_t CurrentThreadId() { return Scheduler::Current()->Self(); }
std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

FileHandle OpenSharedFile(const char* path) {
  const campaign::OwnWork own;
  if (path == nullptr) return kNoFile;
  return &campaign::Files()[path];
}
FileHandle OpenSharedFile(const OLECHAR*) { return kNoFile; }
void CloseSharedFile(FileHandle) {}
std::int64_t SharedFileSize(FileHandle file) {
  return static_cast<std::int64_t>(static_cast<campaign::MemoryFile*>(file)->bytes.size());
}
bool AppendToSharedFile(FileHandle file, std::string_view bytes) {
  if (campaign::Fails(campaign::calls)) return false;
  const campaign::OwnWork own;
  if (auto& reader = static_cast<campaign::MemoryFile*>(file)->reader) reader(bytes);
  return true;
}
bool DeleteSharedFile(const char*) { return true; }
bool DeleteSharedFile(const OLECHAR*) { return true; }
bool RenameSharedFile(const OLECHAR*, const OLECHAR*) { return false; }
OLECHAR PathSeparator() { return u'/'; }

void* TaskAlloc(std::size_t bytes) { return campaign::Fails(campaign::memory) ? nullptr : campaign::Take(bytes); }
void TaskFree(void* memory) { campaign::Give(memory); }

}  // namespace ostrel::platform

// A sanitizer brings operators of its own, which the campaign leaves alone.
#if !defined(CAMPAIGN_SANITIZED)
void* operator new(std::size_t bytes) {
  void* const taken = ostrel::campaign::Fails(ostrel::campaign::memory) ? nullptr : ostrel::campaign::Take(bytes);
  if (taken == nullptr) throw std::bad_alloc();
  return taken;
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return ostrel::campaign::Fails(ostrel::campaign::memory) ? nullptr : ostrel::campaign::Take(bytes);
}
void operator delete(void* memory) noexcept { ostrel::campaign::Give(memory); }
void operator delete(void* memory, std::size_t) noexcept { ostrel::campaign::Give(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { ostrel::campaign::Give(memory); }
#endif
