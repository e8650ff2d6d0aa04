#include "simulator/program/MeterPort.h"

#include <charconv>

namespace ostrel::sim {
namespace {

bool TakePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

std::unique_ptr<IMeterPort> MakeTcpPortFrom(std::string_view text, std::string& error) {
  std::uint16_t port = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (failure != std::errc() || end != text.data() + text.size()) {
    error = "tcp: \"" + std::string(text) + "\" is no port number";
    return nullptr;
  }
  return MakeTcpPort(port);
}

}  // namespace

std::unique_ptr<IMeterPort> MakePort(std::string_view line, SerialMode mode, std::string& error) {
  std::string_view rest = line;
  if (TakePrefix(rest, "pty:") && !rest.empty()) return MakePtyPort(std::string(rest));
  if (TakePrefix(rest, "tcp:")) return MakeTcpPortFrom(rest, error);
  if (TakePrefix(rest, "serial:") && !rest.empty()) return MakeSerialPort(std::string(rest), mode);
  error = "\"" + std::string(line) + "\" is not pty:PATH, tcp:PORT or serial:DEVICE";
  return nullptr;
}

}  // namespace ostrel::sim
