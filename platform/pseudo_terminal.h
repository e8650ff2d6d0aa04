// A pseudo-terminal that a path leads to, for programs that stand in for a device on a serial line.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ostrel::platform {

/// How a terminal is set; a pseudo-terminal carries bytes the same way at any speed.
struct TerminalMode {
  std::uint32_t baud = 0;
  bool parity = false;
  bool odd = false;
};

class PseudoTerminal {
 public:
  PseudoTerminal() = default;
  ~PseudoTerminal() { Close(); }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  /// Makes a raw terminal without echo and a symbolic link at `path` to its other side. A link that an earlier terminal left
  /// is replaced, nothing else is. On failure `error` says why.
  [[nodiscard]] bool Open(const std::string& path, std::string& error);

  /// Closes both sides and removes the link, if it still leads here.
  void Close();

  /// Bytes that the other side has written; 0 when none came within the time or a signal ended the wait. The other side
  /// may close and open again meanwhile.
  [[nodiscard]] std::size_t Read(std::span<std::uint8_t> buffer, std::chrono::microseconds limit);

  /// How the users of the other side have set it; nothing for a speed that no meter has.
  [[nodiscard]] std::optional<TerminalMode> OtherEnd() const;

  /// Never waits: what the other side has left no room for by not reading is lost, as on a wire.
  void Write(std::span<const std::uint8_t> bytes);

 private:
  std::string path_;
  std::string target_;  // what the link leads to
  int controller_ = -1;
  int terminal_ = -1;  // the other side, held open so that its users may come and go
};

}  // namespace ostrel::platform
