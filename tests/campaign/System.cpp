// What platform/ asks of the system, for the campaign: threads and locks are the scheduler's, files go to their readers, and
// memory, files and threads can be told to fail. The linker finds these before it looks into the platform library.
#include "tests/campaign/System.h"

#include <unistd.h>

#include <cstdlib>
#include <map>
#include <new>

#include "platform/critical_section.h"
#include "platform/shared_file.h"
#include "platform/thread.h"
#include "tests/campaign/Scheduler.h"

namespace ostrel::campaign {
namespace {

using LogReader = std::function<void(std::string_view)>;

std::map<std::string, LogReader>& Readers() {
  static std::map<std::string, LogReader> readers;
  return readers;
}

bool Fails(Drill& drill) {
  if (drill.left == 0 || scheduler == nullptr || scheduler->Self() != drill.thread || OwnWork::Depth() > 0) return false;
  if (--drill.left != 0) return false;
  ++drillsFired;
  return true;
}

void* Take(std::size_t bytes) {
  if (Fails(memoryDrill)) return nullptr;
  ++blocksInUse;
  return std::malloc(bytes == 0 ? 1 : bytes);
}

void Give(void* block) {
  if (block != nullptr) --blocksInUse;
  std::free(block);
}

}  // namespace

int& OwnWork::Depth() {
  static int before = 0;
  return scheduler == nullptr ? before : scheduler->OwnWorkDepth();
}

void ReadLog(const std::string& path, LogReader reader) { Readers()[path] = std::move(reader); }

void ForgetSystem() {
  Readers().clear();
  memoryDrill = callDrill = {};
}

}  // namespace ostrel::campaign

namespace ostrel::platform {

using campaign::scheduler;

void FairSection::Enter() { scheduler->Enter(this); }
void FairSection::Leave() { scheduler->Leave(this); }
std::uint64_t FairSection::Waiters() { return scheduler->Waiters(this); }

ThreadHandle StartThread(ThreadProcedure procedure, void* argument, std::uint32_t& id) {
  if (campaign::Fails(campaign::callDrill)) return nullptr;
  return scheduler->Start("poll thread", [procedure, argument, &id] {
    id = scheduler->Self();
    procedure(argument);
  });
}

void JoinThread(ThreadHandle thread) {
  if (thread != nullptr) scheduler->Join(static_cast<campaign::Fibre*>(thread));
}

std::uint32_t CurrentThreadId() { return scheduler->Self(); }
std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

FileHandle OpenSharedFile(const char* path) {
  const campaign::OwnWork own;
  return path == nullptr ? kNoFile : &campaign::Readers()[path];
}
FileHandle OpenSharedFile(const OLECHAR*) { return kNoFile; }
void CloseSharedFile(FileHandle) {}
std::int64_t SharedFileSize(FileHandle) { return 0; }
bool AppendToSharedFile(FileHandle file, std::string_view bytes) {
  if (campaign::Fails(campaign::callDrill)) return false;
  const campaign::OwnWork own;
  if (const auto& reader = *static_cast<campaign::LogReader*>(file)) reader(bytes);
  return true;
}
bool DeleteSharedFile(const char*) { return true; }
bool DeleteSharedFile(const OLECHAR*) { return true; }
bool RenameSharedFile(const OLECHAR*, const OLECHAR*) { return false; }
OLECHAR PathSeparator() { return u'/'; }

void* TaskAlloc(std::size_t bytes) { return campaign::Take(bytes); }
void TaskFree(void* memory) { campaign::Give(memory); }

}  // namespace ostrel::platform

// A sanitizer brings operators of its own, which the campaign leaves alone.
#if !defined(CAMPAIGN_SANITIZED)
void* operator new(std::size_t bytes) {
  if (void* const taken = ostrel::campaign::Take(bytes)) return taken;
  throw std::bad_alloc();
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return ostrel::campaign::Take(bytes); }
void operator delete(void* memory) noexcept { ostrel::campaign::Give(memory); }
void operator delete(void* memory, std::size_t) noexcept { ostrel::campaign::Give(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { ostrel::campaign::Give(memory); }
#endif
