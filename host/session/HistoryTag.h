// What a history tag is, by its place in the catalogue, and a record of it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "Protocol/model/HistoryQuality.h"
#include "host/session/Catalogue.h"
#include "host/session/HistoryInterval.h"

namespace ostrel::host {

struct HistoryRecord {
  WallTime time = 0;
  std::optional<double> value;  // none where the plug-in gave none
  std::uint32_t quality = 0;    // OPC HDA quality word; 0 where the plug-in gave none
};

enum class HistoryKind : std::uint8_t { Day, Month, Year, Profile };

struct HistoryTag {
  TagDefinition definition;
  HistoryKind kind = HistoryKind::Day;
  std::uint8_t tariff = 0;          // 1..8, 0 for the sum; energies only
  const char* unit = "";            // "kWh", "kvarh", "kW", "kvar"
  std::uint32_t periodMinutes = 0;  // of a profile, once it is listed
};

/// `tariff` in place of the one that the tag's name tells.
[[nodiscard]] HistoryTag DescribeHistoryTag(const TagDefinition& definition, std::optional<std::uint32_t> tariff);

/// What became of a reading. `MemoryEnded`: it is complete, but the end of the interval lies behind the last record that the
/// meter holds.
enum class HistoryOutcome : std::uint8_t { Complete, MemoryEnded, Unanswered, Interrupted };

/// Told before the first record (with 0 done), and after each; `expected` is 0 as long as it is not known.
using HistoryProgress = std::function<void(std::size_t done, std::size_t expected)>;
/// Told each record, oldest first.
using HistorySink = std::function<void(const HistoryRecord&)>;

}  // namespace ostrel::host
