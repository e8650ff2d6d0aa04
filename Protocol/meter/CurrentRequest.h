// One request for a current value: how it is tried, and where its answer stands.
#pragma once

#include <cstdint>
#include <span>

#include "Protocol/link/ExchangeEngine.h"

namespace ostrel {

class Meters;

/// Asks the meter; a valid answer then stands in AnswerBuffer with its length in AnswerLength, zeros behind it.
/// `expectedLength` in bytes with address and check, 0 for any. The caller holds ExchangeLock, and reports what came of it.
ExchangeOutcome AskCurrent(Meters& meters, std::uint32_t device, std::span<const std::uint8_t> request,
                           std::uint32_t expectedLength);

/// The shortest answer that holds a value: address, one byte, check.
inline constexpr std::uint32_t kShortestData = 5;

}  // namespace ostrel
