// Any bytes as the answer to any tag of any meter type. The first bytes say the type, the log and the factors.
#include <algorithm>

#include "Protocol/acquisition/ClockCorrection.h"
#include "Protocol/acquisition/Decoder.h"
#include "Protocol/history/EnergyArchive.h"
#include "Protocol/link/Frame.h"
#include "tests/fuzz/Bench.h"

namespace ostrel::fuzz {
namespace {

constexpr std::uint32_t kTypes[] = {0, 1, 2, 3, 6, 7, 8, 11, 12};

void DecodeEveryTag(Bench& bench, std::uint8_t type) {
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) {
    if (SupportsDaTag(kTypes[type % std::size(kTypes)], kFirstDaId + number)) DecodeTag(bench.protocol, *bench.tags[number], 0);
  }
}

void DecodeArchive(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kEnergyAnswer) return;
  for (const std::uint32_t tag : {40000U, 40107U, 40120U, 40227U})
    (void)DecodeEnergy(bytes.first<kEnergyAnswer>(), tag, bytes[0], {.K1 = 1, .K2 = static_cast<std::int16_t>(bytes[1])});
}

void ReadClock(Bench& bench, std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kClockAnswer) return;
  std::uint8_t answer[kClockAnswer];
  std::copy_n(bytes.begin(), kClockAnswer, answer);
  ClockSetting setting{};
  CompareClock(bench.protocol, *bench.protocol.Device(0), answer, setting);
  (void)ShowsUnclearTime(answer);
}

}  // namespace

void Run(std::span<const std::uint8_t> data) {
  static Bench bench;
  if (data.size() < 3) return;
  CProtocol& protocol = bench.protocol;
  const std::span<const std::uint8_t> answer = data.subspan(3, std::min<std::size_t>(data.size() - 3, kMaxAnswer));
  protocol.AnswerBuffer.fill(0);
  std::copy(answer.begin(), answer.end(), protocol.AnswerBuffer.begin());
  protocol.AnswerLength = static_cast<std::uint32_t>(answer.size());
  DeviceEntry& entry = *protocol.Device(0);
  entry.LogRequest = data[1];
  std::copy(answer.begin(), answer.end(), entry.LogCache);
  entry.LogCacheLength = protocol.AnswerLength;
  (void)ValidateAnswer(protocol.AnswerBuffer.data(), protocol.AnswerLength, data[0], data[2]);
  DecodeEveryTag(bench, data[0]);
  DecodeArchive(answer);
  ReadClock(bench, answer);
}

}  // namespace ostrel::fuzz
