#include "Protocol/acquisition/LogDecoder.h"

#include <cstdio>

#include "Protocol/model/DeviceEntry.h"
#include "Protocol/model/TagCatalogue.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kStampBytes = 7;
/// Address, one stamp, check. The second stamp is not asked for: logs of short records would otherwise never show.
constexpr std::uint32_t kShortestRecord = 10;

/// How the records of a range of logs look.
struct LogRow {
  std::uint8_t firstLog;
  std::uint8_t lastLog;
  std::uint32_t stamps;
  TagQuality without;  // of an empty text in the place of a stamp
};

constexpr LogRow kLogs[] = {
    {.firstLog = 0, .lastLog = 0, .stamps = 0, .without = kQualityGood},  // no log is asked for
    {.firstLog = 1, .lastLog = 2, .stamps = 2, .without = kQualityBad},
    {.firstLog = 3, .lastLog = 6, .stamps = 1, .without = kQualityBad},
    {.firstLog = 7, .lastLog = 26, .stamps = 2, .without = kQualityBad},
    {.firstLog = 27, .lastLog = 255, .stamps = 0, .without = kQualityDeviceFailure},
};

const LogRow& RowOf(std::uint8_t log) {
  const LogRow* row = kLogs;
  while (log > row->lastLog) ++row;
  return *row;
}

/// BCD: seconds, minutes, hours, weekday, day, month, year. Digits go out as they stand, wrong ones too.
std::string StampText(const std::uint8_t* stamp, bool time) {
  char text[16];
  const auto at = [stamp](int i) { return unsigned{stamp[i]}; };
  if (time) {
    std::snprintf(text, sizeof text, "%02x:%02x:%02x", at(2), at(1), at(0));
  } else {
    std::snprintf(text, sizeof text, "%02x.%02x.%02x ", at(4), at(5), at(6));
  }
  return text;
}

}  // namespace

LogText DecodeLog(const DeviceEntry& entry, const CDeviceTag& tag) {
  const LogRow& row = RowOf(entry.LogRequest);
  const std::uint32_t part = tag.WriteParam;
  if (part >= row.stamps || entry.LogCacheLength < kShortestRecord) return {"", row.without};
  const bool time = ((tag.TagNumber - kTagFirstLog) & 1) != 0;
  return {StampText(entry.LogCache + 1 + kStampBytes * part, time), kQualityGood};
}

}  // namespace ostrel
