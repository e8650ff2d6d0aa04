#include "platform/thread.h"

#include <process.h>

#include <memory>
#include <new>

#include "platform/windows/com_types.h"

namespace ostrel::platform {
namespace {

struct Call {
  ThreadProcedure procedure;
  void* argument;
};

/// The system calls with its own convention, our procedures have the compiler's.
unsigned __stdcall Run(void* argument) {
  const std::unique_ptr<Call> owned(static_cast<Call*>(argument));
  return owned->procedure(owned->argument);
}

}  // namespace

ThreadHandle StartThread(ThreadProcedure procedure, void* argument, std::uint32_t& id) {
  std::unique_ptr<Call> call(new (std::nothrow) Call{procedure, argument});
  if (!call) return nullptr;
  unsigned systemId = 0;
  const std::uintptr_t handle = ::_beginthreadex(nullptr, 0, Run, call.get(), 0, &systemId);
  if (handle == 0) return nullptr;
  static_cast<void>(call.release());
  id = systemId;
  return reinterpret_cast<ThreadHandle>(handle);
}

void JoinThread(ThreadHandle thread) {
  if (thread == nullptr) return;
  ::WaitForSingleObject(thread, INFINITE);
  ::CloseHandle(thread);
}

void WakePrecisely() {}

std::uint32_t CurrentThreadId() { return ::GetCurrentThreadId(); }

std::uint32_t CurrentProcessId() { return ::GetCurrentProcessId(); }

}  // namespace ostrel::platform
