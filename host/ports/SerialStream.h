// A serial device of the system, taken for this process alone and set raw.
#pragma once

#include <memory>
#include <string>

#include "host/ports/ByteStream.h"

namespace ostrel::host {

/// USB adapters hand bytes on every 16 ms by default; with some slack, a shorter quiet is no end of an answer.
inline constexpr std::uint32_t kSerialGapMs = 20;

/// Null with a reason when the device is not there, in use, or no serial line.
[[nodiscard]] std::unique_ptr<ByteStream> OpenSerial(const std::string& device, std::string& error);

/// The device that serves a port when nobody says so; empty where there is no such rule.
[[nodiscard]] std::string DefaultSerialDevice(const std::string& port);

}  // namespace ostrel::host
