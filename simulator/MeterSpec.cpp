#include "simulator/MeterSpec.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "platform/text.h"
#include "simulator/Bytes.h"
#include "simulator/MeterTypes.h"
#include "simulator/SmoothCurve.h"

namespace ostrel::sim {
namespace {

constexpr std::size_t kPasswordLength = 6;
constexpr std::size_t kLocationLength = 16;

template <typename Number>
bool ParseNumber(std::string_view text, std::int64_t low, std::int64_t high, Number& number) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < low || value > high) return false;
  number = static_cast<Number>(value);
  return true;
}

template <typename Number>
bool ParseNumber(std::string_view text, std::int64_t low, std::int64_t high, std::optional<Number>& number) {
  Number value{};
  if (!ParseNumber(text, low, high, value)) return false;
  number = value;
  return true;
}

bool ParseFlag(std::string_view text, bool& flag) { return ParseNumber(text, 0, 1, flag); }

bool ParsePassword(std::string_view text, std::string& password) {
  password = text;
  return text.size() <= kPasswordLength;
}

bool ParseLocation(std::string_view text, std::string& location) {
  location = text;
  return !text.empty() && platform::Utf8ToCp1251(text).size() <= kLocationLength;
}

bool ParseVariant(std::string_view text, MeterSpec& spec) {
  const auto bytes = FromHex(text);
  if (!bytes || bytes->size() != 3) return false;
  spec.variant = {(*bytes)[0], (*bytes)[1], (*bytes)[2]};
  return true;
}

bool ParseConstant(std::string_view text, MeterSpec& spec) {
  std::uint32_t constant = 0;
  const MeterType* type = FindMeterType(spec.type);
  if (type == nullptr || !ParseNumber(text, 1, 1000000, constant)) return false;
  spec.variant = VariantWithConstant(*type, constant);
  return spec.variant.has_value();
}

bool ParseUnknown(std::string_view text, MeterSpec& spec) {
  auto bytes = FromHex(text);
  if (!bytes || bytes->empty()) return false;
  spec.unknown = std::move(*bytes);
  return true;
}

bool ParseCloses(std::string_view text, MeterSpec& spec) {
  spec.closesAfterEach = text == "each";
  return text == "each" || text == "pause";
}

bool ParseAt(std::string_view text, MeterSpec& spec) {
  spec.frozenAt = ParseMeterTime(text);
  return spec.frozenAt.has_value();
}

bool ParseInstalled(std::string_view text, MeterSpec& spec) {
  spec.installed = ParseMeterTime(text);
  return spec.installed && *spec.installed >= kInstalled;
}

bool ParsePowerCut(std::string_view text, MeterSpec& spec) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return false;
  const auto from = ParseMeterTime(text.substr(0, slash));
  const auto to = ParseMeterTime(text.substr(slash + 1));
  if (!from || !to || *from >= *to) return false;
  spec.powerCuts.push_back({*from, *to});
  return true;
}

bool ParseRecording(std::string_view text, MeterSpec& spec) {
  spec.recording = ParseMeterTime(text);
  return spec.recording && *spec.recording >= kInstalled;
}

bool ParseEmptyRecord(std::string_view text, MeterSpec& spec) {
  const auto time = ParseMeterTime(text);
  if (time) spec.emptyRecords.push_back(*time);
  return time.has_value();
}

/// Hours are made of whole periods.
bool ParsePeriod(std::string_view text, MeterSpec& spec, std::size_t profile) {
  std::uint8_t& minutes = spec.profileMinutes[profile];
  return profile < FindMeterType(spec.type)->profiles && ParseNumber(text, 3, 60, minutes) && 60 % minutes == 0;
}

constexpr std::int64_t kMostSeconds = std::numeric_limits<std::int32_t>::max();

bool ParseFreeze(std::string_view text, MeterSpec& spec) {
  bool freeze = false;
  if (!ParseFlag(text, freeze)) return false;
  if (!freeze) spec.frozenAt.reset();
  if (freeze && !spec.frozenAt) spec.frozenAt = kUsualFrozenTime;
  return true;
}

/// A key, what its value may be, what it does, and what takes it.
struct KeyRow {
  std::string_view key;
  std::string_view values;
  std::string_view meaning;
  bool (*parse)(std::string_view text, MeterSpec& spec);
};

constexpr std::string_view kPeriods = "3, 4, 5, 6, 10, 12, 15, 20, 30 or 60, for a profile that the type keeps";

constexpr KeyRow kKeys[] = {
    {"password1", "at most 6 characters", "opens the channel (000000)",
     [](auto text, auto& spec) { return ParsePassword(text, spec.password1); }},
    {"password2", "at most 6 characters", "opens it for commands; none: password1 does (none)",
     [](auto text, auto& spec) { return ParsePassword(text, spec.password2); }},
    {"serial", "0..99999999", "serial number", [](auto text, auto& spec) { return ParseNumber(text, 0, 99999999, spec.serial); }},
    {"location", "1 to 16 characters", "text that the meter carries",
     [](auto text, auto& spec) { return ParseLocation(text, spec.location); }},
    {"variant", "three bytes in hex", "what the type is made like", ParseVariant},
    {"constant", "a constant that this type is made with", "impulses per kWh; chooses a variant", ParseConstant},
    {"ku", "1..65535", "voltage transformation (1)", [](auto text, auto& spec) { return ParseNumber(text, 1, 65535, spec.ku); }},
    {"ki", "1..65535", "current transformation (1)", [](auto text, auto& spec) { return ParseNumber(text, 1, 65535, spec.ki); }},
    {"offset_s", "seconds", "the clock is ahead by this",
     [](auto text, auto& spec) { return ParseNumber(text, -kMostSeconds, kMostSeconds, spec.offsetSeconds); }},
    {"drift_ppm", "-1000000..1000000", "and gains this",
     [](auto text, auto& spec) { return ParseNumber(text, -1000000, 1000000, spec.driftPpm); }},
    {"dst", "0 or 1", "changes to summer time and back by itself (0)",
     [](auto text, auto& spec) { return ParseFlag(text, spec.summerTime); }},
    {"at", "a time such as 2026-11-22T10:00:00", "stands still at this time", ParseAt},
    {"freeze", "0 or 1", "stands still at 2026-11-20T10:00:00 (0)", ParseFreeze},
    {"installed", "a time such as 2026-11-01T00:00:00, from 2024 on", "archives begin here (2024-01-01T00:00:00)",
     ParseInstalled},
    {"powercut", "two times such as 2026-11-20T10:10:00/2026-11-20T13:20:00", "no power in between; may be given again",
     ParsePowerCut},
    {"period", kPeriods, "minutes between records of the main profile (30)",
     [](auto text, auto& spec) { return ParsePeriod(text, spec, 0); }},
    {"period2", kPeriods, "of the additional profile (3)", [](auto text, auto& spec) { return ParsePeriod(text, spec, 1); }},
    {"period3", kPeriods, "of the third profile (60)", [](auto text, auto& spec) { return ParsePeriod(text, spec, 2); }},
    {"recording", "a time such as 2026-11-20T13:00:00, from 2024 on", "the profiles begin with this hour", ParseRecording},
    {"emptyrecord", "a time such as 2026-11-20T10:10:00", "the profile records around it are blank; may be given again",
     ParseEmptyRecord},
    {"searchpolls", "0 or more", "times that a search for a profile hour still runs when asked (1)",
     [](auto text, auto& spec) { return ParseNumber(text, 0, kMostSeconds, spec.searchPolls); }},
    {"channel_timeout_s", "1 or more seconds", "a channel closes after this pause (240)",
     [](auto text, auto& spec) { return ParseNumber(text, 1, kMostSeconds, spec.channelTimeoutSeconds); }},
    {"closed", "\"each\" or \"pause\"", "closes its channel after each request, or after a pause", ParseCloses},
    {"keeps_level", "0 or 1", "refuses password2 while the channel is open at level 1 (0)",
     [](auto text, auto& spec) { return ParseFlag(text, spec.keepsLevel); }},
    {"busy", "0 or more", "every Nth answer is \"busy\" (0: none)",
     [](auto text, auto& spec) { return ParseNumber(text, 0, kMostSeconds, spec.busyEvery); }},
    {"refuse", "0 or more", "every Nth answer is a refusal (0: none)",
     [](auto text, auto& spec) { return ParseNumber(text, 0, kMostSeconds, spec.refuseEvery); }},
    {"unknown", "the first bytes of a request in hex", "does not know such requests", ParseUnknown},
    {"silent", "0 or 1", "answers nothing (0)", [](auto text, auto& spec) { return ParseFlag(text, spec.silent); }},
    {"log_events", "0..20", "events in each log (20)",
     [](auto text, auto& spec) { return ParseNumber(text, 0, 20, spec.logEvents); }},
    {"seed", "0 or more", "its own in place of the line's",
     [](auto text, auto& spec) { return ParseNumber(text, 0, std::numeric_limits<std::int64_t>::max(), spec.seed); }},
};

/// Pieces between colons. A time holds colons of its own, so a piece without '=' after the type belongs to the one before.
std::vector<std::string> SplitPieces(std::string_view text) {
  std::vector<std::string> pieces;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t colon = std::min(text.find(':', from), text.size());
    const std::string_view piece = text.substr(from, colon - from);
    if (pieces.size() > 2 && piece.find('=') == std::string_view::npos) {
      pieces.back().append(":").append(piece);
    } else {
      pieces.emplace_back(piece);
    }
    from = colon + 1;
  }
  return pieces;
}

bool ParsePiece(std::string_view piece, MeterSpec& spec, std::string& error) {
  const std::size_t equals = std::min(piece.find('='), piece.size());
  const std::string_view key = piece.substr(0, equals);
  const std::string_view value = equals < piece.size() ? piece.substr(equals + 1) : std::string_view();
  const auto* row = std::ranges::find(kKeys, key, &KeyRow::key);
  if (row == std::end(kKeys)) {
    error = "unknown key \"" + std::string(key) + "\"";
    return false;
  }
  if (equals == piece.size() || !row->parse(value, spec)) {
    error = std::string(key) + ": \"" + std::string(value) + "\" is not " + std::string(row->values);
    return false;
  }
  return true;
}

/// What no key by itself can tell.
bool FitsTogether(const MeterSpec& spec, std::string& error) {
  if (FindMeterType(spec.type)->singlePhase && (spec.ku != 1 || spec.ki != 1)) {
    error = spec.ku != 1 ? "ku: a single-phase meter has no transformers" : "ki: a single-phase meter has no transformers";
    return false;
  }
  return true;
}

}  // namespace

std::string DescribeMeterKeys() {
  std::string text;
  for (const KeyRow& row : kKeys) {
    text.append("  ").append(row.key).append(std::max<std::size_t>(18 - row.key.size(), 1), ' ').append(row.meaning);
    text.append("\n").append(20, ' ').append(row.values).append("\n");
  }
  return text;
}

bool ParseMeterSpec(std::string_view text, MeterSpec& spec, std::string& error) {
  const std::vector<std::string> pieces = SplitPieces(text);
  if (!ParseNumber(pieces[0], 1, 254, spec.address)) {
    error = "address: \"" + pieces[0] + "\" is not 1..254";
    return false;
  }
  if (pieces.size() < 2 || !ParseNumber(pieces[1], 0, 255, spec.type) || FindMeterType(spec.type) == nullptr) {
    error = "type: \"" + (pieces.size() < 2 ? std::string() : pieces[1]) + "\" is not one of 0, 1, 2, 3, 6, 7, 8, 11, 12";
    return false;
  }
  for (std::size_t i = 2; i < pieces.size(); ++i) {
    if (!ParsePiece(pieces[i], spec, error)) return false;
  }
  return FitsTogether(spec, error);
}

}  // namespace ostrel::sim
