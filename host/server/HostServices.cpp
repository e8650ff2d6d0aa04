#include "host/server/HostServices.h"

#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "Protocol/diagnostics/CLogFile.h"
#include "Protocol/diagnostics/DebugTrace.h"
#include "host/ports/Devices.h"
#include "host/ports/SerialStream.h"
#include "host/server/ObjectProvider.h"
#include "platform/text.h"

namespace ostrel::host {

struct HostServices::Parts {
  std::shared_ptr<PortDirectory> directory = std::make_shared<PortDirectory>();
  ObjectProvider provider{directory};
  std::optional<CLogFile> log;
  DebugTrace trace;
  std::uint32_t clockCorrectionDays = 0;
  std::mutex making;
  std::deque<HostContext> contexts;
};

std::string DeviceTextProblem(const std::string& device) { return CheckDeviceText(device); }

std::string DefaultDevice(const std::string& port) { return DefaultSerialDevice(port); }

HostServices::HostServices(const ServiceSettings& settings) : parts_(std::make_unique<Parts>()) {
  const auto logFile = platform::Utf8ToSystemPath(settings.logFile);
  if (logFile && !logFile->empty()) parts_->log.emplace(logFile->c_str(), settings.logLimitKb, true);
  if (!settings.traceFile.empty()) {
    parts_->trace.SetFile(platform::Utf8ToOle(settings.traceFile).c_str());
    parts_->trace.ApplySettings(platform::Utf8ToOle(settings.traceSettings).c_str());
  }
  parts_->clockCorrectionDays = settings.clockCorrectionDays;
}

HostServices::~HostServices() = default;

void HostServices::AddPort(const PortDevice& device, ExchangeObserver observer, LateListener late) {
  const bool simulated = device.device == kSimulatedDevice;
  AddPort(device.port, {.open = simulated ? SimulatedOpener(MakeSimulatedLine(device.meters)) : DeviceOpener(device.device),
                        .line = device.line,
                        .observer = std::move(observer),
                        .late = std::move(late)});
}

void HostServices::AddPort(const std::string& port, PortEntry entry) { parts_->directory->Set(port, std::move(entry)); }

HostContext& HostServices::MakeContext() {
  const std::lock_guard lock(parts_->making);
  HostContext& context = parts_->contexts.emplace_back();
  context.ClockCorrectionDays = parts_->clockCorrectionDays;
  context.ObjectProvider = &parts_->provider;
  context.LogFile = parts_->log ? &*parts_->log : nullptr;
  context.Trace = &parts_->trace;
  return context;
}

void HostServices::WrapPort(const std::string& port, StreamWrapper wrapper) {
  std::optional<PortEntry> entry = parts_->directory->Find(port);
  if (!entry) return;
  entry->open = [open = std::move(entry->open), wrapper = std::move(wrapper)](std::string& error) {
    std::unique_ptr<ByteStream> stream = open(error);
    return stream == nullptr ? nullptr : wrapper(std::move(stream));
  };
  parts_->directory->Set(port, *std::move(entry));
}

std::string HostServices::PortProblem(const std::string& port) const { return parts_->directory->Problem(port); }

std::size_t HostServices::PortsOut() const { return parts_->provider.OutstandingCookies(); }

}  // namespace ostrel::host
