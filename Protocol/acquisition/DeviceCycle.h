// One meter's turn in a poll pass: its factors after a reconnection, its tags, its clock.
#pragma once

#include <cstdint>

namespace ostrel {

class PolledChannel;

/// Non-zero when the meter was served or had nothing to do, 0 when an exchange failed. Poll thread only, under PollLock.
std::uint32_t RunDeviceCycle(PolledChannel& channel, std::uint32_t device);

}  // namespace ostrel
