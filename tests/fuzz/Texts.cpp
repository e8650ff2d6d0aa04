// Texts that people write: the configuration, the trace's settings, the registry script, numbers and times on the command line,
// a meter's description, frames in hexadecimal. The first byte chooses.
#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/module/RegistryScript.h"
#include "host/ports/Devices.h"
#include "host/ports/LineMode.h"
#include "host/session/Config.h"
#include "host/session/Failure.h"
#include "host/session/HistoryInterval.h"
#include "host/session/TagValue.h"
#include "platform/text.h"
#include "simulator/MeterSpec.h"
#include "tests/fuzz/Bench.h"

namespace ostrel::fuzz {
namespace {

/// What is wrong with a text is said by an exception of its own; every other one is a finding.
template <class Read>
void Refusable(Read read) {
  try {
    read();
  } catch (const host::Failure&) {
  }
}

void ReadTrace(const std::string& text) {
  DebugTrace trace;
  trace.ApplySettings(platform::Utf8ToOle(text).c_str());
}

void ReadMeter(const std::string& text) {
  sim::MeterSpec spec;
  std::string error;
  if (sim::ParseMeterSpec(text, spec, error)) sim::Meter(spec, 1).Answer(std::vector<std::uint8_t>{1, 0, 0, 0}, 0);
}

void ReadValue(const std::string& text) {
  for (const std::uint32_t type : {VT_R4, VT_UI1, VT_BOOL}) {
    Refusable([&] { (void)host::ParseWriteValue(text, type); });
  }
}

}  // namespace

void Run(std::span<const std::uint8_t> data) {
  if (data.empty()) return;
  const std::string text(data.begin() + 1, data.end());
  switch (data[0] % 8) {
    case 0:
      return Refusable([&] { (void)host::ParseConfig(text, "fuzz.toml"); });
    case 1:
      return ReadTrace(text);
    case 2:
      return static_cast<void>(RegistryScript::Parse(text));
    case 3:
      return Refusable([&] { (void)host::WallTimeText(host::ParseWallTime("--from", text)); });
    case 4:
      return ReadMeter(text);
    case 5:
      return ReadValue(text);
    case 6:
      return static_cast<void>(host::ParseLineMode(text));
    default:
      return static_cast<void>(host::CheckDeviceText(text));
  }
}

}  // namespace ostrel::fuzz
