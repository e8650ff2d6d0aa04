// One tag from its meter: the request, the answer in AnswerBuffer, the decoding.
#pragma once

#include <cstdint>

namespace ostrel {

class CDeviceTag;
class Meters;

enum class Send : std::uint8_t { DecodeOnly = 0, Request = 1 };

/// 1 when the tag was served or needed nothing, 0 when the request failed or the tag is null. The caller holds ExchangeLock.
std::uint32_t ReadTag(Meters& meters, CDeviceTag* tag, Send send, std::uint32_t device);

}  // namespace ostrel
