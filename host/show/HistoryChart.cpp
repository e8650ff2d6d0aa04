// Bars in a terminal: one line a record, eighths of a character fine.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/show/HistoryOutput.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kLeastBar = 10;
constexpr const char* kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};

/// The next of 1, 2, 5, 10, 20, 50, ... that is not below the value.
double ScaleEnd(double greatest) {
  if (!(greatest > 0) || !std::isfinite(greatest)) return 1;
  const double decade = std::pow(10.0, std::floor(std::log10(greatest)));
  for (const double step : {1.0, 2.0, 5.0}) {
    if (greatest <= step * decade) return step * decade;
  }
  return 10 * decade;
}

std::string Bar(double value, double end, std::uint32_t width) {
  if (!(value > 0) || !std::isfinite(value)) return {};
  const auto eighths = static_cast<std::uint32_t>(std::lround(std::min(value / end, 1.0) * width * 8));
  std::string bar;
  for (std::uint32_t i = 0; i < eighths / 8; ++i) bar += "█";
  return bar + kEighths[eighths % 8];
}

std::string Stamp(const HistoryTag& tag, WallTime time) {
  const std::string text = WallTimeText(time);
  return tag.kind == HistoryKind::Profile ? text.substr(5, 5) + ' ' + text.substr(11, 5) : text.substr(0, 10);
}

std::string Row(const HistoryTag& tag, const HistoryRecord& record, double end, std::uint32_t width) {
  const bool good = record.quality == kHistoryGood;
  const std::string value = record.value ? fmt::format("{:>10.3f}", *record.value) : fmt::format("{:>10}", "-");
  return fmt::format("  {:<11} {} {}{}\n", Stamp(tag, record.time), value, good ? '|' : '!',
                     Bar(good ? record.value.value_or(0) : 0, end, width));
}

/// Records that are missing between two of a profile.
std::size_t Missing(const HistoryTag& tag, WallTime before, WallTime after) {
  if (tag.kind != HistoryKind::Profile || tag.periodMinutes == 0) return 0;
  return static_cast<std::size_t>((after - before) / (tag.periodMinutes * kMinuteSeconds) - 1);
}

std::string Axis(const HistoryTag& tag, double end, std::uint32_t width) {
  const std::string label = fmt::format("{:g} {}", end, tag.unit);
  return fmt::format("  {:<22} 0{:>{}}\n", "", label, width);
}

}  // namespace

std::string HistoryChart(const HistoryTag& tag, const std::vector<HistoryRecord>& records, std::uint32_t width) {
  if (records.empty()) return "  no records\n";
  constexpr std::uint32_t kBesideTheBar = 26;
  const std::uint32_t bar = std::max(width > kBesideTheBar ? width - kBesideTheBar : 0, kLeastBar);
  double greatest = 0;
  for (const HistoryRecord& record : records) {
    if (record.quality == kHistoryGood) greatest = std::max(greatest, record.value.value_or(0));
  }
  const double end = ScaleEnd(greatest);
  std::string chart = Axis(tag, end, bar);
  bool bad = false;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const std::size_t missing = i == 0 ? 0 : Missing(tag, records[i - 1].time, records[i].time);
    if (missing != 0) chart += fmt::format("  {:<22} : {} missing\n", "", missing);
    chart += Row(tag, records[i], end, bar);
    bad = bad || records[i].quality != kHistoryGood;
  }
  if (bad) chart += "  ! the record's quality is bad\n";
  return chart;
}

}  // namespace ostrel::host
