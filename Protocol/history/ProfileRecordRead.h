// One record of a load profile: its request and the four powers in the answer.
#pragma once

#include <array>
#include <cstdint>

#include "Protocol/history/ProfileRows.h"
#include "Protocol/meter/MeterRequest.h"

namespace ostrel {

/// What one record takes of the meter's memory, in bytes.
inline constexpr std::uint8_t kProfileRecordBytes = 8;

using PowerRecords = std::array<ProfileRecord, kPowers>;

struct RecordQuery {
  const ProfileRow& row;
  std::uint16_t address;
  FILETIME time;
  std::uint32_t period;  // minutes
  TransformCoefficients coefficients;
};

/// Reads and decodes the record at an address of the meter's memory. False when the exchange failed and when the record is
/// empty (all bytes FF); `records` is not to be used then.
[[nodiscard]] bool ReadProfileRecord(Meters& meters, const MeterRef& meter, const RecordQuery& query, PowerRecords& records);

}  // namespace ostrel
