// Numbers that look random and follow from a seed alone, the same on every system and compiler.
#pragma once

#include <cstdint>

namespace ostrel::sim {

class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t Next() {
    state_ += 0x9E3779B97F4A7C15U;
    std::uint64_t mixed = (state_ ^ (state_ >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31);
  }

  /// 0 up to below 1.
  double Unit() { return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0); }
  double Between(double low, double high) { return low + (high - low) * Unit(); }
  /// 0 up to below `count`, which is not 0.
  std::uint64_t Below(std::uint64_t count) { return Next() % count; }

 private:
  std::uint64_t state_;
};

/// One seed out of two, so that neighbours (addresses, log numbers) get unrelated streams.
inline std::uint64_t MixSeeds(std::uint64_t first, std::uint64_t second) {
  return Random(Random(first).Next() ^ (second * 0xD1B54A32D192ED03U)).Next();
}

}  // namespace ostrel::sim
