// One meter's turn in a poll pass: pending writes, the tags that clients use, shared answers, the clock.
#pragma once

#include <cstdint>

namespace ostrel {

class CProtocol;

/// Non-zero when the meter was served or had nothing to do, 0 when an exchange failed. Poll thread only, under PollLock.
std::uint32_t RunDeviceCycle(CProtocol& protocol, std::uint32_t device);
/// 1 when a client uses at least one of the meter's tags.
std::uint32_t AnyTagInUse(CProtocol& protocol, std::uint32_t device);
void ClearUpdated(CProtocol& protocol, std::uint32_t device);
/// The walk over the meter's tags; 0 when a read failed.
std::uint32_t ServeTags(CProtocol& protocol, std::uint32_t device);

}  // namespace ostrel
