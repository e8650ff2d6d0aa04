// Where ostrel-meter listens: a pseudo-terminal, a TCP port or a serial device, all used in the same way.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace ostrel::sim {

enum class Parity : std::uint8_t { None, Even, Odd };

/// How a serial line is set; eight data bits and one stop bit always.
struct SerialMode {
  std::uint32_t baud = 9600;
  Parity parity = Parity::None;
};

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
};

/// A port from `pty:PATH`, `tcp:PORT` or `serial:DEVICE`, not opened yet; null with `error` when the text is none of them.
[[nodiscard]] std::unique_ptr<IMeterPort> MakePort(std::string_view line, SerialMode mode, std::string& error);

[[nodiscard]] std::unique_ptr<IMeterPort> MakePtyPort(std::string path);
[[nodiscard]] std::unique_ptr<IMeterPort> MakeTcpPort(std::uint16_t port);
[[nodiscard]] std::unique_ptr<IMeterPort> MakeSerialPort(std::string device, SerialMode mode);

}  // namespace ostrel::sim
