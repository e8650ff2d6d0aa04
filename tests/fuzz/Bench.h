// What the targets share: a channel with one meter that has every tag, on the virtual clock. Made once; a run leaves it usable.
#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "platform/virtual_clock.h"

namespace ostrel::fuzz {

/// What a target does with the bytes; each of them defines it.
void Run(std::span<const std::uint8_t> data);

class Bench {
 public:
  explicit Bench(IObjectProvider* provider = nullptr);
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;
  ~Bench();

  [[nodiscard]] CProtocol& Protocol() { return *protocol_; }
  [[nodiscard]] CDeviceTag& Tag(std::uint32_t number) { return *tags_.at(number); }

 private:
  platform::VirtualClock clock_{1'795'377'600'000};  // 2026-11-22 20:00:00 UTC
  DebugTrace trace_;
  HostContext context_;
  CProtocol* protocol_ = new CProtocol;
  std::map<std::uint32_t, CDeviceTag*> tags_;
};

}  // namespace ostrel::fuzz
