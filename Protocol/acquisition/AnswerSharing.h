// One answer for all tags that ask the same question: it is decoded for each of them while it still stands.
#pragma once

#include <cstdint>

namespace ostrel {

class CDeviceTag;
class Meters;

/// Where the answer that a tag was just decoded from stands.
enum class AnswerSource : std::uint8_t { None, Request, LogCache };

struct ServedAnswer {
  AnswerSource source = AnswerSource::None;
  std::uint64_t serial = 0;
};

/// Reads the tag with its own request; false when the meter did not answer.
bool ReadOne(Meters& meters, CDeviceTag& tag, std::uint32_t device, ServedAnswer& answer);

/// Decodes the answer for the meter's later tags that ask what the one at `position` asks. What came from the plug-in's own
/// state is no answer to share: a second "Exchange" or "Log Number" tag is filled when somebody uses it. Poll thread only, under
/// PollLock.
void ShareAnswer(Meters& meters, std::uint32_t device, std::uint32_t position, const ServedAnswer& answer);

}  // namespace ostrel
