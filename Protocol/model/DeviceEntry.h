// One meter: the host's configuration and the plug-in's run-time state in one record of 708 bytes. The host fills a
// DeviceConfig and AddDevice takes it over as it is, so configuration and entry are one type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Protocol/model/CDeviceTag.h"
#include "Protocol/model/HostVector.h"
#include "Protocol/model/ProfileRecord.h"
#include "Protocol/model/SharedFlag.h"
#include "Protocol/model/TickTimer.h"

namespace ostrel {

/// A record that a host may hang on a meter; nothing in the plug-in makes one. 16 bytes in the 32-bit build.
struct AuxRecord {
  std::uint32_t First;
  std::uint32_t Second;
  std::uint32_t Third;
  BSTR Text;  // owned
};

inline constexpr std::size_t kPasswordField = 13;
inline constexpr std::size_t kPasswordSent = 6;
inline constexpr std::size_t kAnswerBuffer = 300;

enum DeviceLinkState : std::uint32_t { kLinkUnknown = 0, kLinked = 1, kLinkLost = 2 };

#pragma pack(push, 4)
/// Entries lie 4-aligned in their table: read and write the 64-bit field by value, and keep no pointer to an entry across
/// a call that may change the table. Flags that two threads touch are read with LoadFlag and written with StoreFlag.
struct DeviceEntry {
  std::uint32_t Address;                       // 0: network number; the low byte leads every frame
  char Level1Password[kPasswordField];         // 4
  char Level2Password[kPasswordField];         // 17: erased after the meter refused it
  char ReservedText[100];                      // 30
  std::uint8_t padding130_[2];
  std::uint32_t TypeId;                        // 132
  std::uint32_t LinkUp;                        // 136
  std::uint32_t LinkDown;                      // 140
  std::uint32_t FailHold;                      // 144: shared flag
  TickTimer FailHoldTimer;                     // 148: the host gives the period, ms
  HostVector<CDeviceTag*> Tags;                // 160
  HostVector<AuxRecord*> AuxList;              // 184
  std::uint32_t ForceClockCheck;               // 208
  std::int64_t NextClockCheck;                 // 212: seconds since 1970
  std::uint8_t LogNumber;                      // 220
  std::uint8_t reserved221_[5];
  std::uint8_t padding226_[2];
  std::uint32_t MeterConstant;                 // 228: impulses per kWh
  std::uint32_t KU;                            // 232: as configured, kept for the host
  std::uint32_t KI;                            // 236: as configured, kept for the host
  std::uint8_t LogCache[kAnswerBuffer];        // 240: last event-log answer
  std::uint32_t LogCacheLength;                // 540
  std::uint8_t LogRequest;                     // 544: event log to read, 0 for none
  std::uint8_t reserved545_[7];
  std::uint8_t TimeSetByte;                    // 552: last data byte of the clock-setting command
  std::uint8_t CoefficientBytes[5];            // 553: raw coefficient answer, 4 used
  std::uint8_t reserved558_[3];
  std::uint8_t reserved561_[34];
  std::uint8_t reserved595_[5];
  std::uint32_t Level2Open;                    // 600
  std::uint32_t LinkState;                     // 604: DeviceLinkState
  std::uint8_t VariantBytes[3];                // 608
  std::uint8_t padding611_;
  float CurrentFactor;                         // 612: as read from the meter
  float VoltageFactor;                         // 616: as read from the meter
  float PowerScale;                            // 620
  std::uint32_t InfoRead;                      // 624: shared flag
  std::uint16_t ProfileHeaderAddress;          // 628
  std::uint8_t padding630_[2];
  std::uint32_t ExchangeOn;                    // 632: shared flag
  HostVector<ProfileRecord> ProfileStore1;     // 636
  HostVector<ProfileRecord> ProfileStore2;     // 660
  HostVector<ProfileRecord> ProfileStore3;     // 684
};
#pragma pack(pop)

using DeviceConfig = DeviceEntry;

static_assert(sizeof(DeviceEntry) == 708 && alignof(DeviceEntry) == 4);
static_assert(offsetof(DeviceEntry, Address) == 0 && offsetof(DeviceEntry, Level1Password) == 4);
static_assert(offsetof(DeviceEntry, Level2Password) == 17 && offsetof(DeviceEntry, ReservedText) == 30);
static_assert(offsetof(DeviceEntry, TypeId) == 132 && offsetof(DeviceEntry, LinkUp) == 136);
static_assert(offsetof(DeviceEntry, LinkDown) == 140 && offsetof(DeviceEntry, FailHold) == 144);
static_assert(offsetof(DeviceEntry, FailHoldTimer) == 148 && offsetof(DeviceEntry, Tags) == 160);
static_assert(offsetof(DeviceEntry, AuxList) == 184 && offsetof(DeviceEntry, ForceClockCheck) == 208);
static_assert(offsetof(DeviceEntry, NextClockCheck) == 212 && offsetof(DeviceEntry, LogNumber) == 220);
static_assert(offsetof(DeviceEntry, MeterConstant) == 228 && offsetof(DeviceEntry, KU) == 232);
static_assert(offsetof(DeviceEntry, KI) == 236 && offsetof(DeviceEntry, LogCache) == 240);
static_assert(offsetof(DeviceEntry, LogCacheLength) == 540 && offsetof(DeviceEntry, LogRequest) == 544);
static_assert(offsetof(DeviceEntry, TimeSetByte) == 552 && offsetof(DeviceEntry, CoefficientBytes) == 553);
static_assert(offsetof(DeviceEntry, Level2Open) == 600 && offsetof(DeviceEntry, LinkState) == 604);
static_assert(offsetof(DeviceEntry, VariantBytes) == 608 && offsetof(DeviceEntry, CurrentFactor) == 612);
static_assert(offsetof(DeviceEntry, VoltageFactor) == 616 && offsetof(DeviceEntry, PowerScale) == 620);
static_assert(offsetof(DeviceEntry, InfoRead) == 624 && offsetof(DeviceEntry, ProfileHeaderAddress) == 628);
static_assert(offsetof(DeviceEntry, ExchangeOn) == 632 && offsetof(DeviceEntry, ProfileStore1) == 636);
static_assert(offsetof(DeviceEntry, ProfileStore2) == 660 && offsetof(DeviceEntry, ProfileStore3) == 684);
static_assert(!platform::kHostLayout || sizeof(AuxRecord) == 16);

}  // namespace ostrel
