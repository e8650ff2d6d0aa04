// What the targets share: a channel with one meter that has every tag, on the virtual clock. A run leaves it usable.
#pragma once

#include <span>
#include <vector>

#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "host/session/HistoryInterval.h"
#include "platform/virtual_clock.h"

namespace ostrel::fuzz {

/// What a target does with the bytes; each of them defines it.
void Run(std::span<const std::uint8_t> data);

struct Bench {
  explicit Bench(std::uint32_t meterType = 1, IObjectProvider* provider = nullptr, CProtocol* made = new CProtocol);
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;
  ~Bench();

  /// Lists, whose times may only ascend (a listing has them newest first), and reads the first records.
  void AskHistory(std::uint32_t tag, host::WallInterval interval);

  platform::VirtualClock clock{1'795'377'600'000};  // 2026-11-22 20:00:00 UTC
  DebugTrace trace;
  HostContext context;
  const std::uint32_t type;
  CProtocol& protocol;
  std::vector<CDeviceTag*> tags;  // by number
};

}  // namespace ostrel::fuzz
