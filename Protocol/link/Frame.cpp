#include "Protocol/link/Frame.h"

#include <cstddef>

#include "platform/crc16.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kCrcBytes = 2;

std::uint16_t ReceivedCrc(const std::uint8_t* answer, std::uint32_t received) {
  const std::uint8_t* const check = answer + (received - kCrcBytes);
  return static_cast<std::uint16_t>(check[0] | check[1] << 8);
}

}  // namespace

std::uint16_t ComputeCrc16(const std::uint8_t* bytes, std::int32_t length) {
  if (bytes == nullptr || length < 0) return 0;
  return platform::Crc16({bytes, static_cast<std::size_t>(length)});
}

void AppendCrc(std::uint8_t* frame, std::int32_t totalLength) {
  if (frame == nullptr || totalLength < static_cast<std::int32_t>(kCrcBytes)) return;
  const std::uint16_t crc = ComputeCrc16(frame, totalLength - 2);
  frame[totalLength - 2] = static_cast<std::uint8_t>(crc & 0xFFU);
  frame[totalLength - 1] = static_cast<std::uint8_t>(crc >> 8);
}

bool CheckFrameCrc(const std::uint8_t* bytes, std::int32_t dataLength, std::uint16_t received) {
  return ComputeCrc16(bytes, dataLength) == received;
}

// The check comes before the lengths: a spoiled frame of any length may still be growing.
AnswerCheck ValidateAnswer(const std::uint8_t* answer, std::uint32_t received, std::uint32_t /*meterAddress*/,
                           std::uint32_t expectedLength) {
  if (answer == nullptr || received == 0) return kAnswerBad;
  if (received < kStatusAnswer) return kAnswerIncomplete;
  const auto dataLength = static_cast<std::int32_t>(received - kCrcBytes);
  if (!CheckFrameCrc(answer, dataLength, ReceivedCrc(answer, received))) return kAnswerIncomplete;
  if (received > kMaxAnswer) return kAnswerBad;
  if (received == kStatusAnswer && answer[1] == kStatusRefused) return kAnswerRefused;
  if (expectedLength != 0 && expectedLength != received) return kAnswerBad;
  return kAnswerValid;
}

}  // namespace ostrel
