// The records of the history operations, shared with the host.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Protocol/model/HostVector.h"
#include "platform/variant.h"

namespace ostrel {

/// One history tag of one meter as the host asks for it.
struct HistoryItem {
  std::uint32_t hostWord0_;
  std::uint32_t DeviceIndex;
  std::uint32_t hostWord8_;
  std::uint32_t MeterType;
  std::uint32_t TagId;
  std::uint8_t Tariff;  // goes into energy requests unchanged; 0 asks for the sum
};
static_assert(sizeof(HistoryItem) == 24 && offsetof(HistoryItem, Tariff) == 20);

struct HistoryValue {
  VARIANT Value;
  std::uint32_t Quality;  // OPC HDA quality word
};
static_assert(!platform::kHostLayout || (sizeof(HistoryValue) == 24 && offsetof(HistoryValue, Quality) == 16));

#pragma pack(push, 4)
struct TimestampList {
  std::uint32_t Count;   // grows by one with each appended time
  std::uint32_t Period;  // minutes, written by profile listings
  HostVector<FILETIME> Times;
};
#pragma pack(pop)
static_assert(sizeof(TimestampList) == 32 && offsetof(TimestampList, Times) == 8);

}  // namespace ostrel
