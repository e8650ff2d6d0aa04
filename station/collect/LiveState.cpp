#include "station/collect/LiveState.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace ostrel::station {
namespace {

/// A reader that falls further behind looks at everything anew.
constexpr std::size_t kMostChanges = 20'000;
constexpr std::uint64_t kTicksPerMs = 10'000;
constexpr std::int64_t kMsFrom1601To1970 = 11'644'473'600'000;

struct UnitRow {
  std::uint32_t first, last;  // numbers behind the first id of their branch
  std::uint32_t period;       // of the pattern within the family
  std::uint32_t places[2];    // place in the pattern, from and before
  const char* unit;
};

// As the families of tags are laid out: energies A+ A- R+ R- of nine, powers and what belongs to each phase of seven.
constexpr UnitRow kUnits[] = {
    {9, 44, 36, {0, 18}, "kWh"},       {9, 44, 36, {18, 36}, "kvarh"}, {45, 48, 4, {0, 2}, "kWh"}, {45, 48, 4, {2, 4}, "kvarh"},
    {49, 69, 7, {0, 1}, "W"},          {49, 69, 7, {1, 2}, "var"},     {49, 69, 7, {2, 3}, "VA"},  {49, 69, 7, {5, 6}, "V"},
    {49, 69, 7, {6, 7}, "A"},          {70, 70, 1, {0, 1}, "W"},       {71, 71, 1, {0, 1}, "var"}, {72, 72, 1, {0, 1}, "VA"},
    {75, 75, 1, {0, 1}, "Hz"},         {76, 86, 1, {0, 1}, "V"},       {87, 87, 1, {0, 1}, "Hz"},  {186, 209, 24, {0, 12}, "kWh"},
    {186, 209, 24, {12, 24}, "kvarh"}, {243, 243, 1, {0, 1}, "°C"},
};

bool SameReading(const host::TagReading& left, const host::TagReading& right) {
  return left.quality == right.quality && left.value == right.value;
}

}  // namespace

std::string UnitOf(std::uint32_t tagId) {
  constexpr std::uint32_t kFirstCurrent = 20000;
  const std::uint32_t number = tagId - kFirstCurrent;
  for (const UnitRow& row : kUnits) {
    if (number < row.first || number > row.last) continue;
    const std::uint32_t place = (number - row.first) % row.period;
    if (place >= row.places[0] && place < row.places[1]) return row.unit;
  }
  return {};
}

std::int64_t UtcMs(const FILETIME& time) {
  const std::uint64_t ticks = std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
  return static_cast<std::int64_t>(ticks / kTicksPerMs) - kMsFrom1601To1970;
}

void LiveState::SetMeter(LiveMeter meter) {
  const std::lock_guard lock(mutex_);
  meters_.insert_or_assign(meter.name, std::move(meter));
}

void LiveState::SetChannel(const LiveChannel& channel) {
  const std::lock_guard lock(mutex_);
  channels_.insert_or_assign(channel.port, channel);
}

void LiveState::RemoveChannel(const std::string& port) {
  const std::lock_guard lock(mutex_);
  channels_.erase(port);
  std::erase_if(meters_, [&](const auto& entry) { return entry.second.channel == port; });
}

std::vector<std::size_t> LiveState::Update(const std::string& meter, const std::vector<host::TagReading>& readings, bool linked,
                                           const std::string& serial, const MeterFigures& figures) {
  const std::lock_guard lock(mutex_);
  std::vector<std::size_t> changed;
  const auto found = meters_.find(meter);
  if (found == meters_.end()) return changed;
  LiveMeter& live = found->second;
  live.linked = linked;
  live.serial = serial;
  live.figures = figures;
  for (std::size_t i = 0; i < readings.size() && i < live.tags.size(); ++i) {
    const bool same = SameReading(live.tags[i].reading, readings[i]);
    live.tags[i].reading = readings[i];
    if (same) continue;
    changed.push_back(i);
    Note(meter, live.tags[i]);
  }
  if (!changed.empty()) changed_.notify_all();
  return changed;
}

// The caller holds the lock.
void LiveState::Note(const std::string& meter, const LiveTag& tag) {
  changes_.push_back({.number = next_++, .meter = meter, .tag = tag});
  if (changes_.size() > kMostChanges) changes_.pop_front();
}

void LiveState::SetFill(const std::string& meter, const FillState& fill) {
  const std::lock_guard lock(mutex_);
  const auto found = meters_.find(meter);
  if (found != meters_.end()) found->second.fill = fill;
}

std::vector<std::string> LiveState::MeterNames() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const auto& [name, meter] : meters_) names.push_back(name);
  return names;
}

std::vector<LiveMeter> LiveState::Summaries() const {
  const std::lock_guard lock(mutex_);
  std::vector<LiveMeter> summaries;
  for (const auto& [name, meter] : meters_) {
    summaries.push_back({.channel = meter.channel,
                         .name = name,
                         .address = meter.address,
                         .type = meter.type,
                         .serial = meter.serial,
                         .linked = meter.linked,
                         .tags = {},
                         .fill = meter.fill,
                         .figures = meter.figures});
  }
  return summaries;
}

std::optional<LiveMeter> LiveState::Meter(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  const auto found = meters_.find(name);
  if (found == meters_.end()) return std::nullopt;
  return found->second;
}

std::vector<LiveChannel> LiveState::Channels() const {
  const std::lock_guard lock(mutex_);
  std::vector<LiveChannel> channels;
  for (const auto& [port, channel] : channels_) channels.push_back(channel);
  return channels;
}

LiveState::Changes LiveState::WaitForChanges(std::uint64_t from, std::uint32_t milliseconds) {
  std::unique_lock lock(mutex_);
  if (from == 0) return {.next = next_, .complete = true, .changes = {}};
  if (next_ <= from) changed_.wait_for(lock, std::chrono::milliseconds(milliseconds));
  Changes result{.next = next_, .complete = true, .changes = {}};
  const std::uint64_t oldest = next_ - changes_.size();
  result.complete = from >= oldest;
  for (std::uint64_t number = std::max(from, oldest); number < next_; ++number) {
    result.changes.push_back(changes_[static_cast<std::size_t>(number - oldest)]);
  }
  return result;
}

void LiveState::WakeAll() { changed_.notify_all(); }

}  // namespace ostrel::station
