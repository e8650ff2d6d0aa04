// Opening and closing the channel's port through the host's port object.
#pragma once

#include <cstdint>

namespace ostrel {

class Line;
struct HostContext;
struct PortSettings;

/// ms to wait after a rejected answer, and the quiet that ends an answer: about what the line's byte time asks for.
[[nodiscard]] std::uint32_t PauseForBaudRate(std::uint32_t baudRate);

/// 1 when the port is open or no port object is to be had, 0 when opening failed (reported as 61249, nothing kept).
/// The caller holds ExchangeLock.
std::uint32_t OpenPort(Line& line);

/// Gives port, port object and cookie back; a closed port is left alone.
void ClosePort(Line& line);

/// Takes over the host's context and settings; a port that is open is closed, with the context that it came from. The poll
/// thread stands still and the caller holds ExchangeLock.
void ApplyPortSettings(Line& line, HostContext* context, const PortSettings& settings);

}  // namespace ostrel
