// History of a meter as a client of the plug-in reads it: record times are listed first, then each value is asked for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "host/session/Channel.h"
#include "host/session/HistoryInterval.h"

namespace ostrel::host {

inline constexpr std::uint32_t kHistoryGood = 0x000400C0;
inline constexpr std::uint32_t kHistoryBad = 0x00040000;

struct HistoryRecord {
  WallTime time = 0;
  std::optional<double> value;  // none where the plug-in gave none
  std::uint32_t quality = 0;    // OPC HDA quality word; 0 where the plug-in gave none
};

/// What a history tag is, by its place in the catalogue.
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

enum class HistoryOutcome : std::uint8_t { Complete, Unanswered, Interrupted };

/// Told before the first record (with 0 done), and after each; `expected` is 0 as long as it is not known.
using HistoryProgress = std::function<void(std::size_t done, std::size_t expected)>;
/// Told each record, oldest first.
using HistorySink = std::function<void(const HistoryRecord&)>;

class HistoryReader {
 public:
  /// The channel must be polling, as the plug-in makes one try of each request otherwise.
  HistoryReader(Channel& channel, const Meter& meter) : channel_(channel), meter_(meter) {}

  /// The tag's records within the interval, or, when it is left out, the profile's last day or the archive's whole depth. Load
  /// profiles are listed a day at a time, so that little is lost when the person at the terminal or the meter ends it.
  HistoryOutcome Read(HistoryTag& tag, const std::optional<WallTime>& from, const std::optional<WallTime>& to,
                      const HistorySink& sink, const HistoryProgress& progress);

 private:
  struct Listing {
    bool answered = false;
    std::vector<FILETIME> times;  // oldest first
  };

  HistoryOutcome ReadProfile(const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                             const HistoryProgress& progress);
  HistoryOutcome ReadArchive(const HistoryTag& tag, WallInterval interval, const HistorySink& sink,
                             const HistoryProgress& progress);
  [[nodiscard]] Listing List(const HistoryTag& tag, WallInterval interval);
  [[nodiscard]] bool ReadValue(const HistoryTag& tag, const FILETIME& time, HistoryRecord& record);
  [[nodiscard]] bool LinkIsDown();

  Channel& channel_;
  const Meter& meter_;
};

}  // namespace ostrel::host
