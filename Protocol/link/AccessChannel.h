// The access channel. A meter answers most requests only while a channel is open, and closes it after a pause of its own;
// we learn of it by the status byte 5 and open it again on demand. No flag of an open channel is kept here.
#pragma once

#include <cstdint>

namespace ostrel {

class Line;

enum class AccessLevel : std::uint32_t { Level1 = 1, Level2 = 2 };

/// Opens the channel with the password of a level; 1 when the meter granted it. Level 1 reports its outcome, level 2
/// does not. `keptLength`, if given, counts the bytes of the channel's answer. The caller holds ExchangeLock.
std::uint32_t OpenChannel(Line& line, std::uint32_t device, AccessLevel level, std::uint32_t* keptLength = nullptr);

/// Level 2 when a password for it is configured, else level 1. A refused (or unanswered) level 2 followed by a granted
/// level 1 erases the level-2 password until the meter is added again. Keeps the byte count in AnswerLength.
std::uint32_t OpenAccess(Line& line, std::uint32_t device);

}  // namespace ostrel
