// What the system knows of a serial device that does not open, or that opens and is slow.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ostrel::platform {

struct SerialDevice {
  bool exists = true;
  bool permitted = true;
  bool isLine = true;
  std::string group;                         // whose members may use it; empty where that is not known
  std::vector<std::string> holders;          // processes that have it open, "1234 (name)", as far as they may be seen
  std::vector<std::string> adapters;         // names of the adapters there are that stay when they are plugged in elsewhere
  std::optional<std::uint32_t> latencyMs{};  // how long the adapter waits for more bytes before it hands on what it has
};

/// `device` in UTF-8.
[[nodiscard]] SerialDevice LookAtSerialDevice(const std::string& device);

}  // namespace ostrel::platform
