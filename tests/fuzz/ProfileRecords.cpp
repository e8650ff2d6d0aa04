// A meter that answers whatever the bytes say to searches and records of its profile: right frames, any content. A listing ends,
// its times ascend, and the second one says the same or more.
#include <algorithm>
#include <cstdlib>

#include "Protocol/history/HistoryTime.h"
#include "Protocol/link/Frame.h"
#include "tests/fuzz/Bench.h"

namespace ostrel::fuzz {
namespace {

/// Answers straight from slot 22, so that a run is short.
class FuzzedProtocol final : public CProtocol {
 public:
  std::span<const std::uint8_t> content;
  std::uint32_t asked = 0;

  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t, std::uint8_t* answer,
                                                     std::uint32_t* count, std::uint32_t) override {
    constexpr std::uint8_t kClock[] = {0x00, 0x00, 0x12, 0x07, 0x22, 0x11, 0x26, 0x01};
    if (++asked > 400) Running = 0;
    const std::uint32_t length = std::max<std::uint32_t>(*count, 4);
    std::fill_n(answer, length, std::uint8_t{0});
    answer[0] = request[0];
    if (request[1] == 0x04) std::copy_n(kClock, sizeof kClock, answer + 1);
    for (std::uint32_t i = 1; request[1] != 0x04 && i + 2 < length && !content.empty(); ++i) {
      answer[i] = content.front();
      content = content.subspan(1);
    }
    AppendCrc(answer, static_cast<std::int32_t>(length));
    *count = length;
    return 1;
  }
};

std::uint32_t List(FuzzedProtocol& protocol, std::uint32_t tag, std::uint64_t startTicks, std::uint64_t spanMinutes) {
  const std::uint64_t endTicks = startTicks + spanMinutes * 600'000'000;
  FILETIME start{.dwLowDateTime = static_cast<DWORD>(startTicks), .dwHighDateTime = static_cast<DWORD>(startTicks >> 32)};
  FILETIME end{.dwLowDateTime = static_cast<DWORD>(endTicks), .dwHighDateTime = static_cast<DWORD>(endTicks >> 32)};
  TimestampList list{};
  protocol.GetHistoryTimestamps(8, tag, 0, &start, &end, &list);
  for (std::uint32_t i = 1; i < list.Times.Size(); ++i) {
    if (Ticks(list.Times[i]) >= Ticks(list.Times[i - 1])) std::abort();
  }
  return list.Times.Size();
}

}  // namespace

void Run(std::span<const std::uint8_t> data) {
  if (data.size() < 8) return;
  static Bench environment;  // the clock
  auto* const protocol = new FuzzedProtocol;
  protocol->AddRef();
  DeviceConfig config{};
  config.Address = 1;
  config.TypeId = 8;
  config.ExchangeOn = 1;
  config.InfoRead = 1;
  config.MeterConstant = 5000;
  protocol->AddDevice(&config);
  protocol->Channel.RetryCount = 1;
  protocol->Running = 1;
  protocol->content = data.subspan(6);
  // 2026-01-01 and up to two years of minutes behind it.
  constexpr std::uint64_t kStart = 134'116'992'000'000'000;
  const std::uint64_t start = kStart + (data[0] * 4096ULL + data[1] * 16ULL + data[2] % 16) * 600'000'000;
  const std::uint32_t tag = 40108 + data[3] % 12;
  List(*protocol, tag, start, data[4] * 8ULL + data[5] % 8);
  List(*protocol, tag, start, data[4] * 8ULL);
  protocol->Running = 0;
  protocol->Release();
}

}  // namespace ostrel::fuzz
