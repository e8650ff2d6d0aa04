// Opening and closing the channel's port through the host's port object.
#pragma once

#include <cstdint>

namespace ostrel {

class CProtocol;

/// ms to wait after a rejected answer, and the quiet that ends an answer: about what the line's byte time asks for.
[[nodiscard]] std::uint32_t PauseForBaudRate(std::uint32_t baudRate);

/// 1 when the port is open or no port object is to be had, 0 when opening failed (reported as 61249, nothing kept).
/// The caller holds ExchangeLock.
std::uint32_t OpenPort(CProtocol& protocol);

/// Gives port, port object and cookie back; a closed port is left alone.
void ClosePort(CProtocol& protocol);

}  // namespace ostrel
