#include "platform/thread.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>

namespace ostrel::platform {
namespace {

/// What a handle points to; it lives until JoinThread.
struct Thread {
  ThreadProcedure procedure;
  void* argument;
  pthread_t native{};
  std::mutex guard{};
  std::condition_variable started{};
  std::uint32_t id = 0;  // 0 until the thread runs
};

void* Run(void* argument) {
  Thread& thread = *static_cast<Thread*>(argument);
  const ThreadProcedure procedure = thread.procedure;
  void* const forProcedure = thread.argument;
  {
    const std::lock_guard lock(thread.guard);
    thread.id = CurrentThreadId();
    thread.started.notify_one();
  }
  procedure(forProcedure);
  return nullptr;
}

}  // namespace

ThreadHandle StartThread(ThreadProcedure procedure, void* argument, std::uint32_t& id) {
  std::unique_ptr<Thread> thread(new (std::nothrow) Thread{.procedure = procedure, .argument = argument});
  if (!thread || pthread_create(&thread->native, nullptr, Run, thread.get()) != 0) return nullptr;
  {
    std::unique_lock lock(thread->guard);
    thread->started.wait(lock, [&] { return thread->id != 0; });
    id = thread->id;
  }
  return thread.release();
}

void JoinThread(ThreadHandle thread) {
  if (thread == nullptr) return;
  const std::unique_ptr<Thread> ended(static_cast<Thread*>(thread));
  pthread_join(ended->native, nullptr);
}

void WakePrecisely() { prctl(PR_SET_TIMERSLACK, 1UL); }

std::uint32_t CurrentThreadId() { return static_cast<std::uint32_t>(syscall(SYS_gettid)); }

std::uint32_t CurrentProcessId() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace ostrel::platform
