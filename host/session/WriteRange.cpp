#include "host/session/WriteRange.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "Protocol/model/TagCatalogue.h"
#include "host/session/Failure.h"

namespace ostrel::host {
namespace {

enum class Kind : std::uint8_t { Whole, Tenths, Energy };

struct RangeRow {
  std::uint32_t first;  // tag numbers
  std::uint32_t last;
  double least;
  double most;
  Kind kind = Kind::Whole;
  const char* what;
};

// The command has 32 bits for half-impulses; meters have 250 to 25000 impulses per kWh.
constexpr double kMostHalfImpulses = 4294967295.0;
constexpr double kLeastEnergy = 1.0 / (2 * 25000);
constexpr double kMostEnergy = kMostHalfImpulses / (2 * 250);
constexpr const char* kCommand = "1, which carries the command out";
constexpr const char* kSwitch = " (1 for yes, 0 for no)";
constexpr const char* kEnergyText = " kWh or kvarh";

// A coefficient has 16 bits, and history takes them as signed. Other values of a command's switch mean something else to the
// meter, or nothing.
constexpr RangeRow kRanges[] = {
    {.first = 6, .last = 7, .least = 1, .most = 32767, .what = ", whole numbers"},
    {.first = 97, .last = 98, .least = 1, .most = 1, .what = kCommand},
    {.first = 99, .last = 99, .least = 1, .most = 255, .what = " whole seconds"},
    {.first = 100, .last = 100, .least = 0, .most = 1, .what = kSwitch},
    {.first = 185, .last = 185, .least = 0, .most = 1, .what = kSwitch},
    {.first = 211, .last = 212, .least = 0, .most = 1, .what = kSwitch},
    {.first = 213, .last = 213, .least = 1, .most = 25, .what = ", whole numbers"},
    {.first = 214, .last = 218, .least = kLeastEnergy, .most = kMostEnergy, .kind = Kind::Energy, .what = kEnergyText},
    {.first = 219, .last = 222, .least = 0.1, .most = 6553.5, .kind = Kind::Tenths, .what = " W"},
    {.first = 223, .last = 242, .least = kLeastEnergy, .most = kMostEnergy, .kind = Kind::Energy, .what = kEnergyText},
};

const RangeRow* RowOf(const TagDefinition& tag) {
  const std::uint32_t number = tag.id - kFirstDaId;
  const auto* const found = std::find_if(std::begin(kRanges), std::end(kRanges),
                                         [number](const RangeRow& row) { return row.first <= number && number <= row.last; });
  return found == std::end(kRanges) ? nullptr : found;
}

// A float by its shortest text, so that 0.1 is not below 0.1.
double NumberOf(const VARIANT& value) {
  switch (value.vt) {
    case VT_R4:
      return std::isfinite(value.fltVal) ? std::stod(fmt::format("{}", value.fltVal)) : double{value.fltVal};
    case VT_BOOL:
      return value.boolVal != 0 ? 1 : 0;
    default:
      return value.bVal;
  }
}

[[noreturn]] void Refuse(const TagDefinition& tag, double value, double least, double most, const char* what) {
  const std::string range = least == most ? "only " : fmt::format("from {:.10g} to {:.10g}", least, most);
  throw Failure(kExitUsage, fmt::format("\"{}\" takes {}{}; {} is not sent", tag.name, range, what, value));
}

}  // namespace

void CheckRange(const TagDefinition& tag, const VARIANT& value) {
  const RangeRow* const row = RowOf(tag);
  if (row == nullptr) throw Failure(kExitUsage, fmt::format("\"{}\" cannot be written: meters have no command for it", tag.name));
  const double number = NumberOf(value);
  const bool fits = number >= row->least && number <= row->most;
  if (!fits || (row->kind == Kind::Whole && number != std::floor(number))) Refuse(tag, number, row->least, row->most, row->what);
}

void CheckImpulses(const TagDefinition& tag, const VARIANT& value, std::uint32_t meterConstant) {
  const RangeRow* const row = RowOf(tag);
  if (row == nullptr || row->kind != Kind::Energy) return;
  if (meterConstant == 0) {
    throw Failure(kExitUsage, fmt::format("\"{}\" is not sent: the meter's constant is not known, so nobody knows what it would "
                                          "mean to the meter",
                                          tag.name));
  }
  const double halfImpulses = 2.0 * meterConstant;
  // The plug-in computes in floats, which round up to twice 24 bits away from the end.
  constexpr double kMostSafe = kMostHalfImpulses * (1 - 2 * std::numeric_limits<float>::epsilon());
  const double number = NumberOf(value);
  const double least = 1 / halfImpulses;
  const double most = kMostSafe / halfImpulses;
  if (!(number >= least && number <= most)) Refuse(tag, number, least, most, row->what);
}

float WriteTolerance(const TagDefinition& tag, float sent, std::uint32_t meterConstant) {
  const RangeRow* const row = RowOf(tag);
  if (row == nullptr || row->kind == Kind::Whole) return 0;
  constexpr float kRelative = 1e-6F;
  constexpr float kHalfTenth = 0.0501F;
  const float step = row->kind == Kind::Tenths ? kHalfTenth : meterConstant == 0 ? 0 : 0.51F / static_cast<float>(meterConstant);
  return step + kRelative * std::fabs(sent);
}

}  // namespace ostrel::host
