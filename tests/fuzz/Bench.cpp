#include "tests/fuzz/Bench.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "Protocol/link/PortSettings.h"
#include "host/session/Meter.h"
#include "platform/clock.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  ostrel::fuzz::Run({bytes, size});
  return 0;
}

namespace ostrel::fuzz {

Bench::Bench(std::uint32_t meterType, IObjectProvider* provider, CProtocol* made) : type(meterType), protocol(*made) {
  platform::ReplaceClock(&clock);
  context.ObjectProvider = provider;
  context.Trace = &trace;
  context.ClockCorrectionDays = 1;
  protocol.AddRef();
  const PortSettings settings{.PortName = "COM1", .BaudRate = 9600, .RetryCount = 2, .PollPeriod = 1, .PortTimeout = 100};
  protocol.SetPortSettings(&context, &settings);
  const DeviceConfig config = host::MakeDeviceConfig({.address = 1}, type);
  protocol.AddDevice(&config);
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    tags.push_back(new CDeviceTag);
    host::FillTag(*tags.back(), number, std::bit_cast<std::array<std::uint32_t, 10>>(TagDescriptors()[number]), 1, 1);
    tags.back()->Use();
    protocol.AddTag(0, tags.back());
  }
}

Bench::~Bench() {
  protocol.Release();
  platform::ReplaceClock(nullptr);
}

void Bench::AskHistory(std::uint32_t tag, host::WallInterval interval) {
  FILETIME start = host::ToFileTime(interval.from);
  FILETIME end = host::ToFileTime(interval.to);
  TimestampList list{};
  protocol.GetHistoryTimestamps(type, tag, 0, &start, &end, &list);
  if (!std::ranges::is_sorted(list.Times.begin(), list.Times.end(), std::ranges::greater(), host::FromFileTime)) std::abort();
  const HistoryItem item{.MeterType = type, .TagId = tag};
  for (std::uint32_t i = 0; i < std::min<std::uint32_t>(list.Times.Size(), 3); ++i) {
    if (i > 0 && host::FromFileTime(list.Times[i]) == host::FromFileTime(list.Times[i - 1])) std::abort();
    HistoryValue value{};
    protocol.ReadHistoryValue(type, &item, &list.Times[i], &value);
  }
}

}  // namespace ostrel::fuzz
