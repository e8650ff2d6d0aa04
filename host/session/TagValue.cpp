#include "host/session/TagValue.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <string_view>

#include "host/session/Failure.h"
#include "platform/clock.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

template <class Number>
Number ParseNumber(const std::string& text, const char* what) {
  Number number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) {
    throw Failure(kExitUsage, fmt::format("\"{}\" is no {}", text, what));
  }
  return number;
}

bool ParseTruth(const std::string& text) {
  if (text == "true" || text == "1") return true;
  if (text == "false" || text == "0") return false;
  throw Failure(kExitUsage, fmt::format("\"{}\" is neither true nor false", text));
}

constexpr std::uint64_t kTicksPerSecond = 10'000'000;

std::uint64_t Ticks(const FILETIME& time) { return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

std::string AgeText(std::uint64_t seconds) {
  constexpr std::uint64_t kMinute = 60;
  constexpr std::uint64_t kHour = 60 * kMinute;
  constexpr std::uint64_t kDay = 24 * kHour;
  if (seconds < 2 * kMinute) return fmt::format("{} s", seconds);
  if (seconds < 2 * kHour) return fmt::format("{} min", seconds / kMinute);
  return seconds < 2 * kDay ? fmt::format("{} h", seconds / kHour) : fmt::format("{} d", seconds / kDay);
}

bool SameNumber(float left, float right) {
  return std::bit_cast<std::uint32_t>(left) == std::bit_cast<std::uint32_t>(right) || (std::isnan(left) && std::isnan(right));
}

}  // namespace

Value ValueOf(VARIANT variant) {
  switch (variant.vt) {
    case VT_R4:
      return variant.fltVal;
    case VT_BOOL:
      return variant.boolVal != 0;
    case VT_UI1:
      return std::int32_t{variant.bVal};
    case VT_I1:
      return std::int32_t{static_cast<std::int8_t>(variant.bVal)};
    case VT_BSTR:
      if (variant.bstrVal == nullptr) return {};
      return platform::OleToUtf8({variant.bstrVal, platform::StringLength(variant.bstrVal)});
    default:
      return {};
  }
}

bool IsValueOf(const Value& value, VARIANT variant) {
  const auto* const number = std::get_if<float>(&value);
  const auto* const text = std::get_if<std::string>(&value);
  if (variant.vt == VT_R4) return number != nullptr && SameNumber(*number, variant.fltVal);
  if (variant.vt != VT_BSTR || variant.bstrVal == nullptr) return value == ValueOf(variant);
  return text != nullptr && platform::SameText({variant.bstrVal, platform::StringLength(variant.bstrVal)}, *text);
}

std::string ValueText(const Value& value) {
  if (std::holds_alternative<std::monostate>(value)) return "-";
  if (const auto* const truth = std::get_if<bool>(&value)) return *truth ? "true" : "false";
  if (const auto* const text = std::get_if<std::string>(&value)) return *text;
  if (const auto* const number = std::get_if<std::int32_t>(&value)) return fmt::format("{}", *number);
  return fmt::format("{}", std::get<float>(value));
}

std::string QualityText(std::uint16_t quality) {
  switch (quality) {
    case kQualityGood:
      return "good";
    case kQualityUncertain:
      return "uncertain";
    case kQualityDeviceFailure:
      return "failure";
    case kQualityBad:
      return "bad";
    default:
      return fmt::format("{}", quality);
  }
}

std::string QualityWithAge(const TagReading& reading) {
  std::string text = QualityText(reading.quality);
  if (reading.quality == kQualityGood || !reading.lastGood) return text;
  const std::uint64_t ticks = Ticks(platform::UtcFileTime()) - std::min(Ticks(*reading.lastGood), Ticks(platform::UtcFileTime()));
  return text + ' ' + AgeText(ticks / kTicksPerSecond);
}

std::string TimestampText(const FILETIME& time) {
  SYSTEMTIME fields = {};
  if (!platform::FileTimeToFields(time, fields)) return {};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", fields.wYear, fields.wMonth, fields.wDay, fields.wHour,
                     fields.wMinute, fields.wSecond, fields.wMilliseconds);
}

VARIANT ParseWriteValue(const std::string& text, std::uint32_t dataType) {
  VARIANT value = {};
  value.vt = static_cast<VARTYPE>(dataType);
  switch (dataType) {
    case VT_R4:
      value.fltVal = ParseNumber<float>(text, "number");
      break;
    case VT_BOOL:
      value.boolVal = ParseTruth(text) ? 1 : 0;
      break;
    case VT_UI1:
      value.bVal = ParseNumber<std::uint8_t>(text, "number from 0 to 255");
      break;
    case VT_I1:
      value.bVal = static_cast<BYTE>(ParseNumber<std::int8_t>(text, "number from -128 to 127"));
      break;
    default:
      throw Failure(kExitUsage, "a tag of this type cannot be written");
  }
  return value;
}

}  // namespace ostrel::host
