// A millisecond timer over the system tick count, right across its wrap.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/clock.h"

namespace ostrel {

/// Lies in the host's records: three unsigned 32-bit fields in this order. The poll thread asks a meter's failure hold
/// while a history thread may restart it, so every access is atomic.
struct TickTimer {
  std::uint32_t forced;
  std::uint32_t period;  // ms
  std::uint32_t start;   // tick count at the last restart

  void Restart() {
    Store(forced, 0);
    Store(start, platform::TickCount());
  }

  void SetPeriod(bool restart, std::uint32_t milliseconds) {
    Store(period, milliseconds);
    if (restart) Restart();
  }

  /// A forced timer has run out, and so has one with period 0.
  [[nodiscard]] bool Expired() { return Load(forced) != 0 || platform::TickCount() - Load(start) >= Load(period); }

 private:
  static void Store(std::uint32_t& field, std::uint32_t value) {
    std::atomic_ref<std::uint32_t>(field).store(value, std::memory_order_relaxed);
  }
  static std::uint32_t Load(std::uint32_t& field) {
    return std::atomic_ref<std::uint32_t>(field).load(std::memory_order_relaxed);
  }
};
static_assert(sizeof(TickTimer) == 12);

}  // namespace ostrel
