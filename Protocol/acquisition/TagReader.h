// One tag from its meter: the request, the answer in AnswerBuffer, the decoding.
#pragma once

#include <cstdint>

namespace ostrel {

class CDeviceTag;
class CProtocol;

enum class Send : std::uint8_t { DecodeOnly = 0, Request = 1 };

/// 1 when the tag was served or needed nothing, 0 when the request failed or the tag is null. The caller holds ExchangeLock.
std::uint32_t ReadTag(CProtocol& protocol, CDeviceTag* tag, Send send, std::uint32_t device);

enum class WhichMonth : std::uint8_t { Current = 0, Previous = 1 };

/// 0x30 + the month of the meter's own clock, or of the month before it. 0 leaves the byte when the clock could not be read.
std::uint32_t MonthByte(CProtocol& protocol, std::uint32_t device, WhichMonth which, std::uint8_t& byte);

/// The selector byte of load control and limits (tags 212 to 242), the same for reading and writing. Other tags leave it.
void LimitSelector(std::uint32_t tagNumber, std::uint8_t& selector);

}  // namespace ostrel
