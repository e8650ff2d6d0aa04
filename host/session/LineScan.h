// Searches a line for meters: addresses, speeds and parities, with a request that only asks.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/session/Catalogue.h"
#include "host/session/Wire.h"

namespace ostrel::host {

struct ScanPlan {
  std::vector<std::uint32_t> addresses;
  bool speeds = false;  // every speed and parity, until a meter answers
};

struct FoundMeter {
  std::uint32_t address = 0;
  std::optional<std::uint32_t> type;  // nothing when it gave no access with this password
  std::string password;
};

struct ScanResult {
  std::uint32_t baud = 0;
  std::string parity;
  std::vector<FoundMeter> meters;
  std::size_t strayBytes = 0;  // that came and were no frame
  bool interrupted = false;
};

/// "1-254", "12" or "1,5,10-20". Throws Failure (usage).
[[nodiscard]] std::vector<std::uint32_t> ParseAddresses(const std::string& text);

/// The time that a search takes when nobody answers.
[[nodiscard]] std::chrono::milliseconds LongestScan(const ChannelConfig& channel, const ScanPlan& plan);

struct ScanProgress {
  std::uint32_t baud = 0;
  std::string parity;
  std::size_t asked = 0;  // addresses at this speed; 0 when it begins with it
};

/// Throws Failure (port).
[[nodiscard]] ScanResult Scan(const ChannelConfig& channel, const ScanPlan& plan,
                              const std::function<void(const ScanProgress&)>& progress);

/// A [[channel]] that can be pasted.
[[nodiscard]] std::string ChannelText(const ChannelConfig& channel, const ScanResult& result,
                                      const std::vector<MeterType>& types);

}  // namespace ostrel::host
