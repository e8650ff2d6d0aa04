// Devices by their text: a serial device, "tcp:HOST:PORT", or "simulated".
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/ports/PortDirectory.h"
#include "simulator/Line.h"

namespace ostrel::host {

inline constexpr const char* kSimulatedDevice = "simulated";

/// What is wrong with the text of a device; empty when it can be tried.
[[nodiscard]] std::string CheckDeviceText(const std::string& device);

/// Opens a serial device or a TCP connection.
[[nodiscard]] StreamOpener DeviceOpener(const std::string& device);
[[nodiscard]] StreamOpener SimulatedOpener(std::shared_ptr<sim::Line> line);

}  // namespace ostrel::host
