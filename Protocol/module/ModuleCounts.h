// What keeps the module loaded: locks of its factory, living factories and living protocol objects.
#pragma once

#include <atomic>
#include <cstdint>

namespace ostrel {

struct ModuleCounts {
  std::atomic<std::int32_t> locks{0};
  std::atomic<std::int32_t> factories{0};
  std::atomic<std::int32_t> objects{0};

  void Clear() { locks = factories = objects = 0; }
};

[[nodiscard]] ModuleCounts& Counts();

}  // namespace ostrel
