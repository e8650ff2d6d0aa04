// The serial settings that the host passes, byte for byte. Texts are code page 1251 and end with a zero.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrel {

/// 142 bytes are promised by the host: the two bytes behind them may not be touched.
struct PortSettings {
  char PortName[12];         // 0: at most 9 characters are kept
  std::uint32_t BaudRate;    // 12
  std::uint16_t RetryCount;  // 16: tries per transaction
  std::uint16_t padding18_;
  std::uint32_t PollPeriod;    // 20: seconds
  std::uint32_t PortTimeout;   // 24: ms
  std::uint32_t PreSendPause;  // 28: ms
  char ParityName[10];         // 32: "Нет", "Чет", "Нечет", "Маркер", "Пробел"
  char SettingsText[100];      // 42: kept, not interpreted
  std::uint8_t padding142_[2];
};

inline constexpr std::size_t kPortNameKept = 9;
inline constexpr std::size_t kParityNameKept = 9;
inline constexpr std::size_t kSettingsTextKept = 99;

static_assert(sizeof(PortSettings) == 144 && offsetof(PortSettings, BaudRate) == 12 && offsetof(PortSettings, RetryCount) == 16);
static_assert(offsetof(PortSettings, PollPeriod) == 20 && offsetof(PortSettings, PortTimeout) == 24);
static_assert(offsetof(PortSettings, PreSendPause) == 28 && offsetof(PortSettings, ParityName) == 32);
static_assert(offsetof(PortSettings, SettingsText) == 42);

}  // namespace ostrel
