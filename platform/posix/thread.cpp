#include "platform/thread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <semaphore>

namespace ostrel::platform {
namespace {

/// What a handle points to; it lives until JoinThread.
struct Thread {
  ThreadProcedure procedure;
  void* argument;
  pthread_t native{};
  std::uint32_t id = 0;
  std::binary_semaphore started{0};
};

void* Run(void* argument) {
  Thread& thread = *static_cast<Thread*>(argument);
  const ThreadProcedure procedure = thread.procedure;
  void* const forProcedure = thread.argument;
  thread.id = CurrentThreadId();
  thread.started.release();
  procedure(forProcedure);
  return nullptr;
}

}  // namespace

ThreadHandle StartThread(ThreadProcedure procedure, void* argument, std::uint32_t& id) {
  std::unique_ptr<Thread> thread(new (std::nothrow) Thread{.procedure = procedure, .argument = argument});
  if (!thread || pthread_create(&thread->native, nullptr, Run, thread.get()) != 0) return nullptr;
  thread->started.acquire();
  id = thread->id;
  return thread.release();
}

void JoinThread(ThreadHandle thread) {
  if (thread == nullptr) return;
  const std::unique_ptr<Thread> ended(static_cast<Thread*>(thread));
  pthread_join(ended->native, nullptr);
}

std::uint32_t CurrentThreadId() { return static_cast<std::uint32_t>(syscall(SYS_gettid)); }

std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace ostrel::platform
