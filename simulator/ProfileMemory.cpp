#include "simulator/ProfileMemory.h"

#include <algorithm>

#include "simulator/Bytes.h"

namespace ostrel::sim {
namespace {

constexpr std::int64_t kCellBytes = 8;
constexpr std::uint8_t kMemories[] = {0x03, 0x08, 0x09};
constexpr std::uint16_t kFromTheOldest = 0xFFFF;

/// Top bit of a power whose interval is not over, or had no power all the time.
constexpr std::uint16_t kNotWhole = 0x8000;
constexpr std::uint32_t kMostPulses = 0x7FFF;

std::span<const Period> PowerCuts(const MeterView& view) { return view.model.Energy().Outages().subspan(1); }

std::int64_t FirstHour(const MeterView& view) {
  const MeterTime installed = view.model.Energy().Outages()[0].to;
  return std::max(installed, view.wall.TimeOf(view.spec.recording.value_or(installed))) / kHour;
}

/// The whole hours of an outage, which leave no trace in the memory.
struct HourRange {
  std::int64_t first, end;
};

HourRange WholeHours(const MeterView& view, const Period& outage) {
  return {std::max((outage.from + kHour - 1) / kHour, FirstHour(view)), outage.to / kHour};
}

}  // namespace

bool HasProfile(const MeterView& view, std::size_t profile) {
  return profile < view.settings.profileMinutes.size() && view.settings.profileMinutes[profile] != 0;
}

bool IsBlank(const MeterView& view, const Period& interval) {
  return std::ranges::any_of(view.spec.emptyRecords, [&](MeterTime shown) {
    const MeterTime time = view.wall.TimeOf(shown);
    return time >= interval.from && time < interval.to;
  });
}

std::optional<std::size_t> ProfileOfMemory(std::uint8_t memory) {
  const auto* found = std::ranges::find(kMemories, memory);
  if (found == std::end(kMemories)) return std::nullopt;
  return static_cast<std::size_t>(found - kMemories);
}

ProfileMemory::ProfileMemory(const MeterView& view, std::size_t profile)
    : view_(view),
      cells_(view.model.Type().profileCells),
      cells_per_hour_(1 + 60 / view.settings.profileMinutes[profile]),
      period_(MeterTime{60} * view.settings.profileMinutes[profile]),
      hours_(HoursBefore(view.now / kHour + 1)) {}

std::int64_t ProfileMemory::HoursBefore(Hour hour) const {
  std::int64_t count = hour - FirstHour(view_);
  for (const Period& outage : PowerCuts(view_)) {
    const HourRange dark = WholeHours(view_, outage);
    count -= std::max<std::int64_t>(0, std::min(hour, dark.end) - dark.first);
  }
  return std::max<std::int64_t>(0, count);
}

ProfileMemory::Hour ProfileMemory::HourAfter(std::int64_t count) const {
  Hour hour = FirstHour(view_) + count;
  for (const Period& outage : PowerCuts(view_)) {
    const HourRange dark = WholeHours(view_, outage);
    if (dark.first <= hour && dark.end > dark.first) hour += dark.end - dark.first;
  }
  return hour;
}

std::uint16_t ProfileMemory::Address(std::int64_t hourNumber) const {
  return static_cast<std::uint16_t>(hourNumber * cells_per_hour_ % cells_ * kCellBytes);
}

std::vector<std::uint8_t> ProfileMemory::Read(std::uint16_t address, std::size_t count) const {
  // The newest place around the ring that lies in the cell of the address; the cells of the running hour are cleared.
  const std::int64_t end = hours_ * cells_per_hour_;
  std::vector<std::uint8_t> bytes;
  std::int64_t at = address % (cells_ * kCellBytes);
  while (bytes.size() < count) {
    const std::int64_t cell = at / kCellBytes;
    const std::int64_t behind = ((end - 1 - cell) % cells_ + cells_) % cells_;
    const Cell content = CellAt(end - 1 - behind);
    for (std::int64_t byte = at % kCellBytes; byte < kCellBytes && bytes.size() < count; ++byte, ++at) {
      bytes.push_back(content[static_cast<std::size_t>(byte)]);
    }
    at %= cells_ * kCellBytes;
  }
  return bytes;
}

ProfileMemory::Cell ProfileMemory::CellAt(std::int64_t place) const {
  if (place < 0) {
    Cell erased;
    erased.fill(0xFF);
    return erased;
  }
  const Hour hour = HourAfter(place / cells_per_hour_);
  const std::int64_t record = place % cells_per_hour_;
  if (record == 0) return Header(hour);
  const MeterTime from = hour * kHour + (record - 1) * period_;
  return Record({from, from + period_});
}

/// Hour and date as shown, the season (1 is winter), the period.
ProfileMemory::Cell ProfileMemory::Header(Hour hour) const {
  const CivilTime civil = ToCivil(view_.wall.Shown(hour * kHour));
  const auto season = static_cast<std::uint8_t>(view_.wall.IsSummer(hour * kHour) ? 0 : 1);
  return {Bcd(civil.hour),       Bcd(civil.day), Bcd(civil.month),
          Bcd(civil.year % 100), season,         static_cast<std::uint8_t>(period_ / 60)};
}

/// Pulses of the interval so far; FF before it begins, and where the memory is said to be blank.
ProfileMemory::Cell ProfileMemory::Record(Period interval) const {
  Cell cell;
  cell.fill(0xFF);
  if (interval.from >= view_.now || IsBlank(view_, interval)) return cell;
  const MeterTime end = std::min(interval.to, view_.now);
  const auto outages = view_.model.Energy().Outages();
  const bool whole = end == interval.to && std::ranges::none_of(outages, [&](const Period& outage) {
                       return outage.from < interval.to && outage.to > interval.from;
                     });
  const Energies energies = view_.model.Energy().Between(0, interval.from, end);
  for (std::size_t kind = 0; kind < energies.size(); ++kind) {
    const auto pulses = static_cast<std::uint16_t>(std::min(energies[kind], kMostPulses) | (whole ? 0U : kNotWhole));
    cell[2 * kind] = static_cast<std::uint8_t>(pulses >> 8);
    cell[2 * kind + 1] = static_cast<std::uint8_t>(pulses);
  }
  return cell;
}

std::optional<std::uint16_t> ProfileMemory::FindHour(MeterTime shown, std::uint16_t start) const {
  const std::int64_t oldest = std::max<std::int64_t>(0, hours_ - cells_ / cells_per_hour_);
  const std::int64_t ring = cells_ * kCellBytes;
  const std::int64_t from = start == kFromTheOldest ? Address(oldest) : start;
  std::optional<std::uint16_t> found;
  std::int64_t nearest = ring;
  for (const MeterTime time : {shown - kHour, shown}) {
    const Hour hour = time / kHour;
    const std::int64_t number = HoursBefore(hour);
    const bool stored = number >= oldest && number < hours_ && HourAfter(number) == hour;
    if (!stored || view_.wall.Shown(time) != shown) continue;
    const std::int64_t distance = ((Address(number) - from) % ring + ring) % ring;
    if (distance < nearest) found = Address(number);
    nearest = std::min(nearest, distance);
  }
  return found;
}

}  // namespace ostrel::sim
