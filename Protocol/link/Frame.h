// Frames of the meter protocol: address, code, parameters, check. The check is CRC-16/MODBUS, low byte first on the wire.
#pragma once

#include <cstdint>

namespace ostrel {

/// The longest answer that is accepted; the longest frame any of the nine types sends is shorter.
inline constexpr std::uint32_t kMaxAnswer = 300;

/// What a received answer is. 3 is left out: the message of a bad check has that number, and nothing produces it.
enum AnswerCheck : std::uint8_t {
  kAnswerValid = 0,
  kAnswerIncomplete = 1,  // the rest may still be on its way
  kAnswerBad = 2,
  kAnswerRefused = 4,  // status 0x0F; the same number stands for no answer at all
};

/// Status bytes of a four-byte answer.
inline constexpr std::uint8_t kStatusOk = 0;
inline constexpr std::uint8_t kStatusCorrectionRefused = 4;
inline constexpr std::uint8_t kStatusChannelClosed = 5;
inline constexpr std::uint8_t kStatusBusy = 6;
inline constexpr std::uint8_t kStatusRefused = 0x0F;
inline constexpr std::uint32_t kStatusAnswer = 4;

/// 0 without a buffer or for a negative length; 0xFFFF for length 0.
[[nodiscard]] std::uint16_t ComputeCrc16(const std::uint8_t* bytes, std::int32_t length);

/// Writes the check into the last two bytes of a frame of `totalLength` bytes; does nothing below 2.
void AppendCrc(std::uint8_t* frame, std::int32_t totalLength);

/// True when the check over the first `dataLength` bytes equals the received one.
[[nodiscard]] bool CheckFrameCrc(const std::uint8_t* bytes, std::int32_t dataLength, std::uint16_t received);

/// Classifies an answer. `expectedLength` 0 accepts any length. The address byte is not compared: meters behind a
/// converter answer with another one.
[[nodiscard]] AnswerCheck ValidateAnswer(const std::uint8_t* answer, std::uint32_t received, std::uint32_t meterAddress,
                                         std::uint32_t expectedLength);

}  // namespace ostrel
