#include "Protocol/history/ProfileRecordRead.h"

#include <algorithm>

#include "Protocol/model/HistoryQuality.h"

namespace ostrel {
namespace {

constexpr std::uint8_t kNotWhole = 0x80;  // top bit of a power: the interval is not to be trusted

using RecordAnswer = std::array<std::uint8_t, kProfileRecordBytes + 3>;

bool IsEmpty(const RecordAnswer& answer) {
  return std::all_of(answer.begin() + 1, answer.begin() + 1 + kProfileRecordBytes,
                     [](std::uint8_t byte) { return byte == 0xFF; });
}

struct PowerUnit {
  std::uint32_t perUnit;  // impulses of half weight that make one unit of power over the period; 0: not known
  TransformCoefficients coefficients;
};

/// Average power over the interval, kW or kvar on the primary side.
float Power(std::uint32_t raw, const PowerUnit& unit) {
  return static_cast<float>(raw * 60.0 / unit.perUnit * unit.coefficients.K1 * unit.coefficients.K2);
}

/// Without a meter constant the value stays 0.0 with bad quality: a division by zero would look good.
void DecodePower(std::uint8_t high, std::uint8_t low, const PowerUnit& unit, ProfileRecord& record) {
  const bool known = unit.perUnit != 0;
  record.Value.vt = VT_R4;
  record.Value.fltVal = known ? Power((high & 0x7FU) << 8 | low, unit) : 0.0F;
  record.Quality = known && (high & kNotWhole) == 0 ? kHistoryGood : kHistoryBad;
}

}  // namespace

bool ReadProfileRecord(Meters& meters, const MeterRef& meter, const RecordQuery& query, PowerRecords& records) {
  const std::array<std::uint8_t, 5> body = {0x06, query.row.memory, static_cast<std::uint8_t>(query.address >> 8),
                                            static_cast<std::uint8_t>(query.address), kProfileRecordBytes};
  RecordAnswer answer{};
  std::uint32_t meterConstant = 0;
  if (!AskMeter(meters, meter, body, answer, meterConstant) || IsEmpty(answer)) return false;
  const PowerUnit unit{.perUnit = meterConstant * 2 * query.period, .coefficients = query.coefficients};
  for (std::uint32_t i = 0; i < kPowers; ++i) {
    records[i] = {};
    records[i].Time = query.time;
    records[i].Address = query.address;
    records[i].TagId = query.row.firstTag + i;
    DecodePower(answer[1 + 2 * i], answer[2 + 2 * i], unit, records[i]);
  }
  return true;
}

}  // namespace ostrel
