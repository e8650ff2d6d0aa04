#include "host/ports/Devices.h"

#include <charconv>
#include <cstdint>
#include <string_view>
#include <utility>

#include "host/ports/SerialStream.h"
#include "host/ports/SimulatedStream.h"
#include "host/ports/TcpStream.h"

namespace ostrel::host {
namespace {

constexpr std::string_view kTcpPrefix = "tcp:";

struct TcpAddress {
  std::string host;
  std::string port;
};

// The port stands behind the last colon; an IPv6 address may stand in brackets.
TcpAddress SplitTcp(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return {};
  std::string_view host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return {std::string(host), std::string(text.substr(colon + 1))};
}

bool IsPortNumber(const std::string& text) {
  std::uint16_t number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() && number != 0;
}

// Where devices are paths, a Windows name would be a file that is not there, and so would a kind that we do not know.
std::string SerialTextProblem(std::string_view device) {
  constexpr std::string_view kWindowsPort = "COM";
  const bool paths = DefaultSerialDevice(std::string(kWindowsPort)).empty();
  if (!paths || device.find('/') != std::string_view::npos) return {};
  const std::size_t colon = device.find(':');
  if (colon != std::string_view::npos) {
    return "\"" + std::string(device.substr(0, colon + 1)) + "\" is no kind of device: a path, tcp:HOST:PORT or simulated";
  }
  const bool windows =
      device.starts_with(kWindowsPort) && device.find_first_not_of("0123456789", kWindowsPort.size()) == std::string_view::npos;
  return windows ? "is a name of Windows; here it is a path such as /dev/ttyUSB0" : "";
}

}  // namespace

std::string CheckDeviceText(const std::string& device) {
  if (device.empty()) return "is empty";
  if (!device.starts_with(kTcpPrefix)) return SerialTextProblem(device);
  const TcpAddress address = SplitTcp(std::string_view(device).substr(kTcpPrefix.size()));
  if (!address.host.empty() && IsPortNumber(address.port)) return {};
  return "must be tcp:HOST:PORT with a port number from 1 to 65535";
}

StreamOpener DeviceOpener(const std::string& device) {
  if (!device.starts_with(kTcpPrefix)) {
    return [device](std::string& error) { return OpenSerial(device, error); };
  }
  const TcpAddress address = SplitTcp(std::string_view(device).substr(kTcpPrefix.size()));
  return [address](std::string& error) { return OpenTcp(address.host, address.port, error); };
}

StreamOpener SimulatedOpener(std::shared_ptr<sim::Line> line) {
  return [line = std::move(line)](std::string&) { return std::make_unique<SimulatedStream>(line); };
}

}  // namespace ostrel::host
