// A channel with one meter, as in a running poll thread.
#pragma once

#include "Protocol/link/ExchangeEngine.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {

inline constexpr const char* kRequest = "0C 05 00 00";
inline constexpr const char* kEnergies = "0C 00 00 0F A0 00 00 27 10 00 00 00 05 00 00 00 01";  // 19 bytes with its check
inline constexpr const char* kNoAnswer = "COM3 ПРИБОР:12 Нет ответа от устройства";
inline constexpr const char* kOpen = "0C 01 30 30 30 30 30 30";

class LinkedChannel : public TestChannel {
 public:
  explicit LinkedChannel(const MeterOptions& meter = {}) {
    Protocol().Running = 1;
    AddMeter(12, 1, meter);
  }

  std::uint32_t Execute(std::uint32_t expected = 19) {
    const Bytes request = Frame(kRequest);
    return ExecuteRequest(Protocol(), 0, request.data(), static_cast<std::uint32_t>(request.size()), answer.data(), expected);
  }

  Bytes answer = Bytes(300);
};

}  // namespace ostrel::test
