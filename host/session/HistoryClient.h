// The history operations of the plug-in for one meter, as its clients use them: record times are listed first, then each
// value is asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Protocol/object/Interfaces.h"
#include "host/session/HistoryTag.h"

namespace ostrel::host {

/// Archives list only what lies within their depth, so these hold all of them.
inline constexpr WallInterval kAllTimes{.from = 0, .to = 32'503'680'000};  // 1970 to 3000

struct HistoryListing {
  bool answered = false;
  std::vector<WallTime> times;  // ascending
  /// Of a profile: the last hour that the meter was asked for is in its memory. A listing that ends before its end has then met
  /// a blank record; otherwise the hours behind its last record are not there.
  bool hourFound = false;
};

struct HistoryReading {
  HistoryRecord record;
  bool answered = false;
  /// Not even what comes before the archive was answered.
  bool silent = false;
};

class HistoryClient {
 public:
  /// `device` is the meter's place in the plug-in's table. The plug-in must be polling, as it makes one try of each request
  /// otherwise.
  HistoryClient(IProtocol& protocol, std::uint32_t meterType, std::uint32_t device)
      : protocol_(protocol), meter_type_(meterType), device_(device) {}

  /// How many records the meter's type keeps; 0 for a tag that is browsed, but not kept.
  [[nodiscard]] std::uint32_t Depth(const HistoryTag& tag);
  /// Minutes between a profile's records, asked of the meter; 0 when it did not answer.
  [[nodiscard]] std::uint32_t Period(const HistoryTag& tag);
  [[nodiscard]] HistoryListing List(std::uint32_t tagId, WallInterval interval);
  /// Of a profile only times of the last listing.
  [[nodiscard]] HistoryReading Read(const HistoryTag& tag, WallTime time);

 private:
  IProtocol& protocol_;
  std::uint32_t meter_type_;
  std::uint32_t device_;
  bool constantKnown_ = false;  // impulses per kWh, as of the last listing
};

}  // namespace ostrel::host
