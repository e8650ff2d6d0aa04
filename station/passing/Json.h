// Times, numbers and states as every way out of the station writes them.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "station/archive/Archive.h"
#include "station/collect/LiveState.h"

namespace ostrel::station {

using Json = nlohmann::ordered_json;

/// Text that is no UTF-8 is replaced, never thrown about.
[[nodiscard]] std::string Dumped(const Json& json);
[[nodiscard]] Json NumberOrNull(const std::optional<double>& number);
/// A float's own shortest digits; null unless the quality is good.
[[nodiscard]] Json CurrentJson(const CurrentValue& value);
[[nodiscard]] Json ReadingJson(const host::TagReading& reading);
[[nodiscard]] Json TagJson(const LiveTag& tag);
/// "2026-11-22T20:00:00.123Z"
[[nodiscard]] std::string UtcText(std::int64_t utcMs);
/// "2026-11-22T20:00:00", as the meter's clock shows it
[[nodiscard]] std::string WallText(std::int64_t time);
[[nodiscard]] const char* RecordStateText(RecordState state);

}  // namespace ostrel::station
