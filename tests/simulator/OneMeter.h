// A simulated meter to talk to in hex, without its address and checks.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "tests/support/SimulatedLine.h"

namespace ostrel::test {

inline constexpr std::int64_t kNoon = 1795348800000;  // 2026-11-22 12:00:00 UTC, a Sunday
inline constexpr std::string_view kOpenLevel1 = "01 30 30 30 30 30 30";

class OneMeter {
 public:
  explicit OneMeter(std::string_view spec, std::uint64_t seed = 1) : meter(Spec(spec), seed) {}

  /// The answer in hex between address and check, both of which are tested; empty for silence.
  std::string Ask(std::string_view request) {
    const auto address = static_cast<std::uint8_t>(meter.Spec().address);
    Bytes body = Hex(request);
    body.insert(body.begin(), address);
    Bytes answer = meter.Answer(WithCheck(body), now);
    if (answer.empty()) return {};
    EXPECT_GE(answer.size(), 4U);
    EXPECT_EQ(answer[0], address);
    EXPECT_EQ(answer, WithCheck(Bytes(answer.begin(), answer.end() - 2)));
    return ToHex(Bytes(answer.begin() + 1, answer.end() - 2));
  }

  void Open() { EXPECT_EQ(Ask(kOpenLevel1), "00"); }

  sim::Meter meter;
  std::int64_t now = kNoon;
};

}  // namespace ostrel::test
