#include "station/passing/Json.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <ctime>

#include "host/session/HistoryInterval.h"

namespace ostrel::station {
namespace {

constexpr std::uint16_t kGood = 192;

// The double whose shortest text is the float's: 0.1, not 0.10000000149011612.
Json FloatJson(float number) {
  if (!std::isfinite(number)) return nullptr;
  const std::string text = fmt::format("{}", number);
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

std::string Dumped(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json NumberOrNull(const std::optional<double>& number) {
  if (!number || !std::isfinite(*number)) return nullptr;
  return static_cast<double>(static_cast<float>(*number)) == *number ? FloatJson(static_cast<float>(*number)) : Json(*number);
}

Json CurrentJson(const CurrentValue& value) {
  if (value.quality != kGood) return nullptr;
  if (value.text) return *value.text;
  return NumberOrNull(value.number);
}

Json ReadingJson(const host::TagReading& reading) {
  if (reading.quality != kGood) return nullptr;
  if (const auto* const number = std::get_if<float>(&reading.value)) return FloatJson(*number);
  if (const auto* const whole = std::get_if<std::int32_t>(&reading.value)) return *whole;
  if (const auto* const truth = std::get_if<bool>(&reading.value)) return *truth;
  if (const auto* const text = std::get_if<std::string>(&reading.value)) return *text;
  return nullptr;
}

Json TagJson(const LiveTag& tag) {
  Json json;
  json["id"] = tag.id;
  json["tag"] = tag.name;
  json["value"] = ReadingJson(tag.reading);
  json["unit"] = tag.unit;
  json["quality"] = tag.reading.quality;
  json["time"] = UtcText(UtcMs(tag.reading.timestamp));
  json["writable"] = tag.writable;
  return json;
}

std::string UtcText(std::int64_t utcMs) {
  const std::int64_t ms = (utcMs % 1000 + 1000) % 1000;
  return fmt::format("{}.{:03}Z", host::WallTimeText((utcMs - ms) / 1000), ms);
}

std::string WallText(std::int64_t time) { return host::WallTimeText(time); }

const char* RecordStateText(RecordState state) {
  switch (state) {
    case RecordState::Good:
      return "good";
    case RecordState::Bad:
      return "bad";
    case RecordState::Absent:
      return "absent";
    case RecordState::Lost:
      break;
  }
  return "lost";
}

}  // namespace ostrel::station
