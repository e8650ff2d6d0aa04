// What a second listing of a load profile costs. It asks three requests (clock, period, coefficients), and every record is
// served from the meter's store, so twice as many records may cost no more than twice as much. The cost is what a client
// waits for: the processor's time of the call and the line time of its frames at 9600 baud. The processor's share alone
// grows with the records one to one, so its ratio lies about 2, a little more where the larger store leaves a cache; a walk
// over the store for each record would make it 4.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "Protocol/link/Frame.h"
#include "Protocol/object/CProtocol.h"
#include "platform/virtual_clock.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kSmall = 4096;
constexpr std::uint32_t kLarge = 8192;
constexpr double kBound = 2.0;
constexpr double kProcessorBound = 2.5;
constexpr int kRuns = 41;
constexpr std::uint32_t kTag = 40108;
constexpr std::uint8_t kPeriod = 15;  // minutes
constexpr std::uint64_t kInterval = kPeriod * 600'000'000ULL;
constexpr double kByteMs = 10 * 1000.0 / 9600;  // ten bits

FILETIME ToTime(std::uint64_t ticks) { return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)}; }

/// 2026-11-05 00:30
std::uint64_t FirstTicks() {
  FILETIME time{};
  const SYSTEMTIME fields = {2026, 11, 0, 5, 0, 30, 0, 0};
  if (!platform::FieldsToFileTime(fields, time)) return 0;
  return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

/// A meter in place of a port. It answers at once and counts the bytes.
class InstantMeter final : public CProtocol {
 public:
  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                     std::uint8_t* answer, std::uint32_t* count, std::uint32_t) override {
    constexpr std::uint8_t kClock[] = {1, 0x00, 0x00, 0x12, 0x03, 0x01, 0x12, 0x26, 0x00, 0, 0};
    constexpr std::uint8_t kPeriodAnswer[] = {1, 0x00, kPeriod, 0, 0};
    constexpr std::uint8_t kCoefficients[] = {1, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0};
    ++Asked;
    LineBytes += requestLength;
    if (request[1] == 0x04) return Give(kClock, answer, count);
    if (request[1] == 0x08 && request[2] == 0x06) return Give(kPeriodAnswer, answer, count);
    if (request[1] == 0x08 && request[2] == 0x02) return Give(kCoefficients, answer, count);
    return 0;  // a record or a search: the store was not used
  }

  int Asked = 0;
  std::uint32_t LineBytes = 0;

 private:
  template <std::uint32_t Size>
  std::uint32_t Give(const std::uint8_t (&frame)[Size], std::uint8_t* answer, std::uint32_t* count) {
    std::memcpy(answer, frame, Size);
    AppendCrc(answer, Size);
    *count = Size;
    LineBytes += Size;
    return 1;
  }
};

/// A channel with one meter whose store holds that many intervals, four powers each.
class StoredMeter {
 public:
  explicit StoredMeter(std::uint32_t records) : records_(records), protocol_(new InstantMeter) {
    protocol_->AddRef();
    PortSettings settings{};
    settings.RetryCount = 1;
    settings.BaudRate = 9600;
    protocol_->SetPortSettings(&context_, &settings);
    DeviceConfig config{};
    config.Address = 1;
    config.TypeId = 1;
    config.ExchangeOn = 1;
    config.InfoRead = 1;
    config.MeterConstant = 5000;
    Fill(config.ProfileStore1);
    protocol_->AddDevice(&config);
  }
  StoredMeter(const StoredMeter&) = delete;
  StoredMeter& operator=(const StoredMeter&) = delete;
  ~StoredMeter() { protocol_->Release(); }

  /// False when the listing was not the whole of the store or asked for a record.
  bool List() {
    FILETIME start = ToTime(FirstTicks());
    FILETIME end = ToTime(FirstTicks() + records_ * kInterval);
    TimestampList list{};
    protocol_->Asked = 0;
    protocol_->LineBytes = 0;
    const std::clock_t before = std::clock();
    const std::uint32_t result = protocol_->GetHistoryTimestamps(1, kTag, 0, &start, &end, &list);
    processorMs_.push_back(static_cast<double>(std::clock() - before) * 1000 / CLOCKS_PER_SEC);
    return result == 1 && list.Count == records_ && protocol_->Asked == 3;
  }

  /// Of the run that was disturbed least.
  [[nodiscard]] double ProcessorMs() const { return *std::ranges::min_element(processorMs_); }
  [[nodiscard]] double LineMs() const { return protocol_->LineBytes * kByteMs; }

 private:
  void Fill(HostVector<ProfileRecord>& store) const {
    for (std::uint32_t i = 0; i < records_; ++i) {
      for (std::uint32_t power = 0; power < 4; ++power) {
        ProfileRecord record{};
        record.Time = ToTime(FirstTicks() + i * kInterval);
        record.Address = static_cast<std::uint16_t>(i * 8);
        record.Value.vt = VT_R4;
        record.TagId = kTag + power;
        store.Append(record);
      }
    }
  }

  std::uint32_t records_;
  HostContext context_;
  InstantMeter* protocol_;
  std::vector<double> processorMs_;
};

void Print(std::uint32_t records, const StoredMeter& meter) {
  std::printf("second listing of %u records: %.2f ms processor, %.2f ms line\n", records, meter.ProcessorMs(), meter.LineMs());
}

int Run() {
  StoredMeter small(kSmall);
  StoredMeter large(kLarge);
  for (int run = 0; run < kRuns; ++run) {
    if (!small.List() || !large.List()) {
      std::fprintf(stderr, "the listing was not served from the store\n");
      return 1;
    }
  }
  Print(kSmall, small);
  Print(kLarge, large);
  const double ratio = (large.ProcessorMs() + large.LineMs()) / (small.ProcessorMs() + small.LineMs());
  const double processor = large.ProcessorMs() / small.ProcessorMs();
  std::printf("ratio %.2f (at most %.2f), processor alone %.2f (at most %.2f)\n", ratio, kBound, processor, kProcessorBound);
  return ratio <= kBound && processor <= kProcessorBound ? 0 : 1;
}

}  // namespace
}  // namespace ostrel

int main() {
  setenv("TZ", "UTC", 1);  // no change of the clocks shortens the listing
  ostrel::platform::VirtualClock clock(1'795'377'600'000);
  ostrel::platform::ReplaceClock(&clock);
  return ostrel::Run();
}
