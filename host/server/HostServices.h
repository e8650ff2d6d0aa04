// What the host lends to the plug-in's channels: a context for each, with the object provider, the event log and the trace that
// all of them share, and the ports that the provider serves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Protocol/link/HostContext.h"
#include "host/ports/PortDirectory.h"
#include "host/ports/PortLine.h"
#include "host/ports/SimulatedMeters.h"
#include "host/server/Export.h"

namespace ostrel::host {

struct ServiceSettings {
  std::string logFile;  // UTF-8; empty or not to be named by the system: no event log
  std::uint32_t logLimitKb = 1024;
  std::string traceFile;  // UTF-8; empty: no trace
  std::string traceSettings;
  std::uint32_t clockCorrectionDays = 0;
};

struct PortDevice {
  std::string port;    // the name the plug-in opens, such as COM1
  std::string device;  // a serial device, "tcp:HOST:PORT", or "simulated"
  LineOptions line;
  std::vector<SimulatedMeter> meters;  // of a simulated line
};

/// What is wrong with the text of a device; empty when it can be tried.
[[nodiscard]] TAVRINDASERVER_API std::string DeviceTextProblem(const std::string& device);
/// The device that serves a port when none is named; empty where the system has no such rule.
[[nodiscard]] TAVRINDASERVER_API std::string DefaultDevice(const std::string& port);

/// Outlives every channel that was given a context.
class HostServices {
 public:
  TAVRINDASERVER_API explicit HostServices(const ServiceSettings& settings);
  TAVRINDASERVER_API ~HostServices();
  HostServices(const HostServices&) = delete;
  HostServices& operator=(const HostServices&) = delete;

  /// Before the first channel opens the port.
  TAVRINDASERVER_API void AddPort(const PortDevice& device, ExchangeObserver observer = {}, LateListener late = {});
  TAVRINDASERVER_API void AddPort(const std::string& port, PortEntry entry);
  /// Puts something around every stream that the port opens from now on.
  TAVRINDASERVER_API void WrapPort(const std::string& port, StreamWrapper wrapper);

  /// A context of its own for each channel: it holds the lock over the values of the channel's tags, and channels do not wait
  /// for one another there. Stays until the services end.
  [[nodiscard]] TAVRINDASERVER_API HostContext& MakeContext();
  /// Why the port could not be used when it was opened last; empty when it could.
  [[nodiscard]] TAVRINDASERVER_API std::string PortProblem(const std::string& port) const;
  /// Port objects whose cookie has not come back.
  [[nodiscard]] TAVRINDASERVER_API std::size_t PortsOut() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace ostrel::host
