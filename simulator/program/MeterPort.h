// Where ostrel-meter listens: a pseudo-terminal, a TCP port or a serial device, all used in the same way.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "simulator/Uart.h"

namespace ostrel::sim {

class IMeterPort {
 public:
  virtual ~IMeterPort() = default;

  /// Opens, also again after Close. On failure `error` says why.
  virtual bool Open(std::string& error) = 0;
  virtual void Close() = 0;
  /// What others connect to: the path of a link or device, the number of a port.
  [[nodiscard]] virtual std::string Name() const = 0;
  /// Bytes received; 0 when none came within the time.
  virtual std::size_t Read(std::span<std::uint8_t> buffer, std::chrono::microseconds limit) = 0;
  virtual void Write(std::span<const std::uint8_t> bytes) = 0;
  /// How the other end is set, where that can be seen.
  [[nodiscard]] virtual std::optional<SerialMode> OtherEnd() const { return std::nullopt; }
};

/// A port from `pty:PATH`, `tcp:PORT` or `serial:DEVICE`, not opened yet; null with `error` when the text is none of them.
[[nodiscard]] std::unique_ptr<IMeterPort> MakePort(std::string_view line, SerialMode mode, std::string& error);

[[nodiscard]] std::unique_ptr<IMeterPort> MakePtyPort(std::string path);
[[nodiscard]] std::unique_ptr<IMeterPort> MakeTcpPort(std::uint16_t port);
[[nodiscard]] std::unique_ptr<IMeterPort> MakeSerialPort(std::string device, SerialMode mode);

}  // namespace ostrel::sim
