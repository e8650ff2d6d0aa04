// The block that GetChannel hands to the host: the channel's settings, its meters, and behind them the port handles.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Protocol/link/PortInterfaces.h"
#include "Protocol/link/PortSettings.h"
#include "Protocol/model/DeviceEntry.h"

namespace ostrel {

#pragma pack(push, 4)
struct ChannelRecord {
  char PortName[12];               // 0
  std::uint32_t BaudRate;          // 12
  std::uint16_t RetryCount;        // 16: becomes 1 when a transaction runs without the poll thread
  std::uint16_t padding18_;
  std::uint32_t PollPeriod;        // 20: seconds
  std::uint32_t PortTimeout;       // 24: ms
  std::uint32_t PreSendPause;      // 28: ms
  char ParityCode[10];             // 32: the letter of the mode string, not the name
  char SettingsText[100];          // 42
  std::uint8_t padding142_[2];
  HostVector<DeviceEntry> Devices; // 144
  std::uint32_t ExchangeEnabled;   // 168: shared flag, the host may write it
  std::uint32_t reserved172_;      // 172
  std::uint32_t PortCookie;        // 176
  IPortObject* PortObject;         // 180
  IPortIo* PortIo;                 // 184 in the 32-bit build
};
#pragma pack(pop)

static_assert(offsetof(ChannelRecord, BaudRate) == 12 && offsetof(ChannelRecord, RetryCount) == 16);
static_assert(offsetof(ChannelRecord, PollPeriod) == 20 && offsetof(ChannelRecord, PortTimeout) == 24);
static_assert(offsetof(ChannelRecord, PreSendPause) == 28 && offsetof(ChannelRecord, ParityCode) == 32);
static_assert(offsetof(ChannelRecord, SettingsText) == 42 && offsetof(ChannelRecord, Devices) == 144);
static_assert(offsetof(ChannelRecord, ExchangeEnabled) == 168 && offsetof(ChannelRecord, reserved172_) == 172);
static_assert(offsetof(ChannelRecord, PortCookie) == 176 && offsetof(ChannelRecord, PortObject) == 180);
static_assert(!platform::kHostLayout || (offsetof(ChannelRecord, PortIo) == 184 && sizeof(ChannelRecord) == 188));

}  // namespace ostrel
