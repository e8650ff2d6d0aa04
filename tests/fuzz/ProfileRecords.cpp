// A meter that answers whatever the bytes say to searches and records of its profile: right frames, any content. A listing ends,
// its times ascend, and so do those of the second one, which is served from what the first one kept.
#include <algorithm>

#include "Protocol/link/Frame.h"
#include "tests/fuzz/Bench.h"

namespace ostrel::fuzz {
namespace {

/// Answers straight from slot 22, so that a run is short.
class FuzzedProtocol final : public CProtocol {
 public:
  explicit FuzzedProtocol(std::span<const std::uint8_t> content) : content_(content) {}

  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t, std::uint8_t* answer,
                                                     std::uint32_t* count, std::uint32_t) override {
    constexpr std::uint8_t kClock[] = {0x00, 0x00, 0x12, 0x07, 0x22, 0x11, 0x26, 0x01};
    if (++asked_ > 400) Running = 0;
    const std::uint32_t length = std::max<std::uint32_t>(*count, 4);
    std::fill_n(answer, length, std::uint8_t{0});
    answer[0] = request[0];
    if (request[1] == 0x04) std::copy_n(kClock, sizeof kClock, answer + 1);
    for (std::uint32_t i = 1; request[1] != 0x04 && i + 2 < length && !content_.empty(); ++i) {
      answer[i] = content_.front();
      content_ = content_.subspan(1);
    }
    AppendCrc(answer, static_cast<std::int32_t>(length));
    *count = length;
    return 1;
  }

 private:
  std::span<const std::uint8_t> content_;
  std::uint32_t asked_ = 0;
};

}  // namespace

void Run(std::span<const std::uint8_t> data) {
  if (data.size() < 8) return;
  Bench bench(8, nullptr, new FuzzedProtocol(data.subspan(6)));
  DeviceEntry& entry = *bench.protocol.Device(0);
  entry.InfoRead = 1;
  entry.MeterConstant = 5000;
  bench.protocol.Channel.RetryCount = 1;
  bench.protocol.Running = 1;
  // 2026-01-01 and up to two years of minutes behind it.
  const host::WallTime start = 1'767'225'600 + (data[0] * 4096LL + data[1] * 16LL + data[2] % 16) * host::kMinuteSeconds;
  const std::uint32_t tag = 40108 + data[3] % 12;
  bench.AskHistory(tag, {start, start + (data[4] * 8 + data[5] % 8) * host::kMinuteSeconds});
  bench.AskHistory(tag, {start, start + data[4] * 8 * host::kMinuteSeconds});
  bench.protocol.Running = 0;
}

}  // namespace ostrel::fuzz
