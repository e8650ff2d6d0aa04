// A serial line behind a network gateway: the line's bytes over a TCP connection.
#pragma once

#include <memory>
#include <string>

#include "host/ports/ByteStream.h"

namespace ostrel::host {

/// Gateways gather bytes into packets and networks delay them: shorter quiet is no end of an answer.
inline constexpr std::uint32_t kTcpGapMs = 50;

/// Connects within a bounded time; null with a reason when it does not come about.
[[nodiscard]] std::unique_ptr<ByteStream> OpenTcp(const std::string& host, const std::string& port, std::string& error);

}  // namespace ostrel::host
