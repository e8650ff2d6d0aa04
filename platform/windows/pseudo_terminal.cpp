#include "platform/pseudo_terminal.h"

namespace ostrel::platform {

bool PseudoTerminal::Open(const std::string& path, std::string& error) {
  error = path + ": this system has no pseudo-terminals; use tcp:PORT or serial:DEVICE";
  return false;
}

void PseudoTerminal::Close() {}

std::size_t PseudoTerminal::Read(std::span<std::uint8_t>, std::chrono::microseconds) { return 0; }

std::optional<TerminalMode> PseudoTerminal::OtherEnd() const { return std::nullopt; }

void PseudoTerminal::Write(std::span<const std::uint8_t>) {}

}  // namespace ostrel::platform
