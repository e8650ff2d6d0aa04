// Values of tags outside of the plug-in's records.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "Protocol/model/CDeviceTag.h"
#include "platform/variant.h"

namespace ostrel::host {

/// Nothing, a number, truth, or UTF-8 text.
using Value = std::variant<std::monostate, float, std::int32_t, bool, std::string>;

struct TagReading {
  Value value;
  std::uint16_t quality = 0;
  bool changed = true;  // value or quality is not what it was when the tag was read before
  FILETIME timestamp{};
  std::optional<FILETIME> lastGood{};  // when there was a good value last
};

/// The data of a VARIANT; nothing for an empty one and a null text.
[[nodiscard]] Value ValueOf(VARIANT variant);

/// Whether ValueOf gives that value; what is not a number equals itself.
[[nodiscard]] bool IsValueOf(const Value& value, VARIANT variant);

/// "1234.5", "да", "true"; "-" for nothing. Numbers are as short as they can be without losing anything, with a decimal point.
[[nodiscard]] std::string ValueText(const Value& value);
[[nodiscard]] std::string QualityText(std::uint16_t quality);
/// The quality of a reading; of one without a good value also how long ago there was one: "failure 12 min".
[[nodiscard]] std::string QualityWithAge(const TagReading& reading);
/// "2026-11-22T20:00:00.123Z"
[[nodiscard]] std::string TimestampText(const FILETIME& time);

/// What a person wrote, as a VARIANT of the tag's type. Throws Failure (usage) when it cannot be one.
[[nodiscard]] VARIANT ParseWriteValue(const std::string& text, std::uint32_t dataType);

}  // namespace ostrel::host
