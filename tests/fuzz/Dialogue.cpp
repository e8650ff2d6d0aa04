// A script of bytes and delays into a whole master: cycles of a meter and history requests through the port of the host's
// programs. Every piece is a delay, a count of bytes, and the bytes; some get a right check, so that they come further.
#include <algorithm>
#include <memory>

#include "Protocol/acquisition/DeviceCycle.h"
#include "Protocol/link/Frame.h"
#include "host/server/ObjectProvider.h"
#include "platform/clock.h"
#include "tests/fuzz/Bench.h"

namespace ostrel::fuzz {
namespace {

class ScriptedStream final : public host::ByteStream {
 public:
  explicit ScriptedStream(std::span<const std::uint8_t>& script) : script_(script) {}

  bool SetMode(const host::LineMode&) override { return true; }
  bool Send(const std::uint8_t* bytes, std::size_t size) override {
    request_.assign(bytes, bytes + size);
    return true;
  }
  bool Failed() const override { return false; }
  std::uint32_t OwnGapMs() const override { return 0; }

  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override {
    if (script_.size() < 2) {
      platform::Sleep(waitMs);
      return 0;
    }
    const std::uint8_t delay = script_[0];
    const std::uint8_t kind = script_[1];
    if (waitMs == 0 && delay > 0x10) return 0;
    platform::Sleep(std::min<std::uint32_t>(waitMs, delay));
    script_ = script_.subspan(2);
    return delay > waitMs ? 0 : Take(buffer, std::min<std::size_t>(size, kind & 0x3F), (kind & 0x80) != 0);
  }

 private:
  std::size_t Take(std::uint8_t* buffer, std::size_t wanted, bool checked) {
    const std::size_t count = std::min(wanted, script_.size());
    std::copy_n(script_.begin(), count, buffer);
    script_ = script_.subspan(count);
    if (!checked || count < 4) return count;
    buffer[0] = request_.empty() ? 1 : request_[0];
    AppendCrc(buffer, static_cast<std::int32_t>(count));
    return count;
  }

  std::span<const std::uint8_t>& script_;
  std::vector<std::uint8_t> request_;
};

}  // namespace

void Run(std::span<const std::uint8_t> data) {
  if (data.size() < 4 || data.size() > 4096) return;
  auto directory = std::make_shared<host::PortDirectory>();
  host::ObjectProvider provider(directory);
  std::span<const std::uint8_t> script = data.subspan(2);
  directory->Set("COM1", {.open = [&script](std::string&) { return std::make_unique<ScriptedStream>(script); },
                          .line = {.lateGuardMs = 50, .echo = (data[0] & 1) != 0},
                          .observer = {}});
  Bench bench(1, &provider);
  bench.protocol.Running = 1;
  constexpr host::WallTime kEvening = 1'795'377'600;
  while (script.size() >= 2) {
    const std::size_t before = script.size();
    if ((data[0] & 2) != 0)
      bench.AskHistory(kFirstHdaId + data[1] % kHdaTagCount, {kEvening - 10 * host::kHourSeconds, kEvening});
    RunDeviceCycle(bench.protocol, 0);
    if (script.size() == before) break;
  }
  bench.protocol.Running = 0;
}

}  // namespace ostrel::fuzz
