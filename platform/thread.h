// One background thread with a handle that can be waited on and closed.
#pragma once

#include <cstdint>

namespace ostrel::platform {

using ThreadHandle = void*;
using ThreadProcedure = std::uint32_t (*)(void* argument);

/// Starts a thread; its identifier goes to `id`. Null when the system has none left.
[[nodiscard]] ThreadHandle StartThread(ThreadProcedure procedure, void* argument, std::uint32_t& id);

/// Waits without limit for the thread to end, then gives the handle back to the system. Null is allowed.
void JoinThread(ThreadHandle thread);

/// Waits of this thread end within microseconds of their time from here on, where the system would let them drift by more to
/// save power. Does nothing on a system without such a choice.
void WakePrecisely();

[[nodiscard]] std::uint32_t CurrentThreadId();
[[nodiscard]] std::uint32_t CurrentProcessId();

}  // namespace ostrel::platform
