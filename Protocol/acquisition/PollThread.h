// The poll thread: one pass per poll period over every meter of the channel, with each meter's link bookkeeping.
#pragma once

#include <cstdint>

namespace ostrel {

class PolledChannel;

/// 1 when the thread polls, also when it did already; one that has ended meanwhile is joined and followed by a new one.
std::uint32_t StartPolling(PolledChannel& channel);
/// Returns when the thread has ended. The caller holds neither PollLock nor ExchangeLock.
void StopPolling(PolledChannel& channel);
/// 1, and the failure hold ended, when its time has run out or there is none; 0 also for a device outside the table.
std::uint32_t EndFailureHold(PolledChannel& channel, std::uint32_t device);

}  // namespace ostrel
