// A meter that answers every current-value request with the right length and nothing much in it, for tests that count
// requests rather than read values.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "tests/support/Hex.h"

namespace ostrel::test {

/// Silent while `silent`; its clock stands at 2026-11-22 20:00:00.
class PlainMeter {
 public:
  explicit PlainMeter(std::uint8_t address = 1) : address_(address) {}

  [[nodiscard]] Bytes Answer(std::span<const std::uint8_t> request) const {
    if (silent || request.empty() || request[0] != address_) return {};
    Bytes answer = Payload(request);
    answer.insert(answer.begin(), address_);
    return WithCheck(std::move(answer));
  }

  bool silent = false;

 private:
  /// Answer bytes between address and check.
  static Bytes Payload(std::span<const std::uint8_t> request) {
    switch (request[1]) {
      case 0x04:
        return Hex("00 00 20 07 22 11 26 00");
      case 0x05:
        return Bytes(16, 0);
      case 0x08:
        return ParameterPayload(request[2]);
      case 0x09:
        return Hex("30 15 08 03 19 11 24 59 59 23 07 31 12 25");
      default:
        return Bytes(1, 0);
    }
  }

  static Bytes ParameterPayload(std::uint8_t parameter) {
    switch (parameter) {
      case 0x00:
        return Hex("00 BC 61 4E 05 03 24");
      case 0x01:
      case 0x05:
        return Bytes(2, 1);
      case 0x02:
        return Hex("00 01 00 01 00 00 00 00 00 00");
      case 0x03:
      case 0x11:
        return Hex("00 10 00");
      case 0x12:
        return Hex("01 40 13");
      case 0x0B:
      case 0x0D:
        return Bytes(16, 0x20);
      case 0x20:
        return Bytes(4, 0);
      default:
        return Bytes(2, 0);
    }
  }

  std::uint8_t address_;
};

}  // namespace ostrel::test
