// How well a listing of a full load profile uses its line: the time beyond its frames' own line time at 9600 baud and beyond the
// plug-in's pause before it asks again for the result of a search that still runs. The profile is listed a day at a time, as
// ostrel-host does. All on the virtual clock: the line is paced, and port and plug-in wait as they would.
#include <cstdio>
#include <cstdlib>

#include "Protocol/history/ProfileSearch.h"
#include "Protocol/object/CProtocol.h"
#include "host/ports/SimulatedStream.h"
#include "host/server/HostServices.h"
#include "platform/virtual_clock.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kBaud = 9600;
constexpr double kBound = 0.03;
constexpr std::uint32_t kTag = 40108;
constexpr std::uint64_t kDayTicks = 86400ULL * 10'000'000;
constexpr int kDays = 113;  // 2730 hours of two half-hours and a header fill the memory

struct Counts {
  std::int64_t requests = 0;
  std::int64_t bytes = 0;
  std::int64_t lineMs = 0;
  std::int64_t pausesMs = 0;
};

/// In the whole milliseconds that a line inside the process is paced in.
std::int64_t LineMs(std::size_t bytes) { return (sim::WireUs({kBaud}, bytes) + 999) / 1000; }

bool StillSearches(std::span<const std::uint8_t> request, std::span<const std::uint8_t> answer) {
  return request.size() > 2 && request[1] == 0x08 && request[2] == 0x18 && answer.size() > 1 && (answer[1] & 0x0F) == 1;
}

sim::Meter MakeMeter() {
  sim::MeterSpec spec;
  std::string error;
  if (!sim::ParseMeterSpec("1:1:at=2026-11-20T10:40:00:channel_timeout_s=100000", spec, error)) std::abort();
  return sim::Meter(spec, 1);
}

std::uint64_t ToTicks(const SYSTEMTIME& fields) {
  FILETIME time{};
  if (!platform::FieldsToFileTime(fields, time)) std::abort();
  return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

FILETIME ToTime(std::uint64_t ticks) { return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)}; }

CProtocol* MakeProtocol(HostContext* context) {
  auto* const protocol = new CProtocol;
  protocol->AddRef();
  PortSettings settings{};
  std::snprintf(settings.PortName, sizeof settings.PortName, "COM1");
  settings.BaudRate = kBaud;
  settings.RetryCount = 3;
  settings.PortTimeout = 500;
  protocol->SetPortSettings(context, &settings);
  protocol->Running = 1;
  DeviceConfig config{};
  config.Address = 1;
  config.TypeId = 1;
  config.ExchangeOn = 1;
  std::snprintf(config.Level1Password, sizeof config.Level1Password, "000000");
  protocol->AddDevice(&config);
  return protocol;
}

std::uint32_t ListAll(CProtocol& protocol) {
  const std::uint64_t end = ToTicks({2026, 11, 0, 20, 10, 30, 0, 0});
  std::uint32_t listed = 0;
  for (int day = kDays; day > 0; --day) {
    FILETIME from = ToTime(end - static_cast<std::uint64_t>(day) * kDayTicks);
    FILETIME to = ToTime(end - static_cast<std::uint64_t>(day - 1) * kDayTicks);
    TimestampList list{};
    if (protocol.GetHistoryTimestamps(1, kTag, 0, &from, &to, &list) != 1) return 0;
    listed += list.Count;
  }
  return listed;
}

int Run(platform::VirtualClock& clock) {
  Counts counts;
  const auto line = std::make_shared<sim::Line>(std::vector<sim::Meter>{MakeMeter()}, sim::FaultPlan{}, sim::Pace{kBaud});
  host::HostServices services{{}};
  services.AddPort("COM1", {.open = [&](std::string&) { return std::make_unique<host::SimulatedStream>(line); },
                            .line = {.lateGuardMs = 100, .echo = false},
                            .observer =
                                [&](std::span<const std::uint8_t> request, std::span<const std::uint8_t> answer) {
                                  ++counts.requests;
                                  counts.bytes += static_cast<std::int64_t>(request.size() + answer.size());
                                  counts.lineMs += LineMs(request.size() + answer.size());
                                  if (StillSearches(request, answer)) counts.pausesMs += kSearchPollPauseMs;
                                }});
  CProtocol* const protocol = MakeProtocol(&services.MakeContext());
  const std::int64_t begun = clock.Elapsed();
  const std::uint32_t listed = ListAll(*protocol);
  const std::int64_t elapsed = clock.Elapsed() - begun;
  protocol->Running = 0;
  protocol->Release();
  const double ratio = static_cast<double>(elapsed - counts.lineMs - counts.pausesMs) / static_cast<double>(elapsed);
  std::printf("%u records with %lld requests and %lld bytes: %.1f s, of these %.1f s line and %.1f s pauses\n", listed,
              static_cast<long long>(counts.requests), static_cast<long long>(counts.bytes), static_cast<double>(elapsed) / 1000,
              static_cast<double>(counts.lineMs) / 1000, static_cast<double>(counts.pausesMs) / 1000);
  std::printf("beyond the line time: %.4f of the whole (at most %.2f)\n", ratio, kBound);
  return listed > 5400 && ratio <= kBound ? 0 : 1;
}

}  // namespace
}  // namespace ostrel

int main() {
  setenv("TZ", "UTC", 1);
  ostrel::platform::VirtualClock clock(1'795'377'600'000);
  ostrel::platform::ReplaceClock(&clock);
  return ostrel::Run(clock);
}
