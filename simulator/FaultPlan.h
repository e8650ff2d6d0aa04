// Faults of a line by name. Which requests they meet, and which byte or bit, follows from the seed alone, so that every
// failure can be run again.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace ostrel::sim {

enum class FaultKind : std::uint8_t {
  LostByte,     // one byte of the answer is missing
  FlippedBit,   // one bit of the answer is wrong
  CutAnswer,    // the answer ends early
  Merged,       // the answer is held back and comes glued before the next one
  Pieces,       // the answer comes in pieces of `bytes` bytes, `ms` apart
  Late,         // the answer comes `ms` later, and up to `spread` more
  Doubled,      // the answer comes again, `ms` after the first time
  Echo,         // the request comes back before the answer
  Noise,        // up to `bytes` random bytes come before the answer, or in place of none
  Silence,      // no answer
  PortFailure,  // the line is gone for `ms`
  WrongSpeed,   // the answer comes as a receiver at half the meter's speed sees it
  Foreign,      // the answer carries another address
  Chatter,      // `bytes` bytes that nobody asked for come every `ms`
};

struct Fault {
  FaultKind kind = FaultKind::Silence;
  std::uint32_t every = 0;  // meets every Nth request; 0: see chance
  double chance = 0;        // meets a request with this probability; with both 0 it meets each
  std::uint32_t bytes = 1;
  std::uint32_t ms = 0;
  std::uint32_t spread = 0;   // ms
  std::uint32_t address = 0;  // only requests to this meter; 0: to any
};

struct FaultPlan {
  std::uint64_t seed = 1;
  bool inOrder = false;       // no answer overtakes an earlier one, as on a modem; they queue
  std::vector<Fault> faults;  // applied in this order
};

/// "lost-byte", "flipped-bit", "cut", "merged", "pieces", "late", "doubled", "echo", "noise", "silence", "port-failure",
/// "wrong-speed", "foreign", "chatter".
[[nodiscard]] std::optional<FaultKind> FaultKindFromName(std::string_view name);

}  // namespace ostrel::sim
