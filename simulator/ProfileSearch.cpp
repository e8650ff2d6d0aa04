#include "simulator/ProfileSearch.h"

#include <optional>

#include "simulator/Bytes.h"
#include "simulator/Meter.h"
#include "simulator/ProfileMemory.h"

namespace ostrel::sim {
namespace {

constexpr std::size_t kParameterBytes = 9;

/// Hour, day, month, year.
std::optional<MeterTime> ShownHour(std::span<const std::uint8_t, 4> fields) {
  const CivilTime civil{
      .year = 2000 + BcdValue(fields[3]), .month = BcdValue(fields[2]), .day = BcdValue(fields[1]), .hour = BcdValue(fields[0])};
  if (civil.year < 2000 || !IsDate(civil) || civil.hour < 0 || civil.hour > 23) return std::nullopt;
  return FromCivil(civil);
}

}  // namespace

Status ProfileSearch::Start(const MeterView& view, std::span<const std::uint8_t> parameters) {
  if (parameters.size() != kParameterBytes || !HasProfile(view, parameters[0])) return Status::Unknown;
  const auto shown = ShownHour(parameters.subspan<3, 4>());
  const bool flagged = parameters[7] != 0;
  if (!shown || flagged || parameters[8] != view.settings.profileMinutes[parameters[0]]) return Status::Unknown;
  profile_ = parameters[0];
  const auto start = static_cast<std::uint16_t>(BigValue(parameters.subspan(1, 2)));
  const auto found = ProfileMemory(view, profile_).FindHour(*shown, start);
  outcome_ = found ? State::Found : State::NoSuchHour;
  header_ = found.value_or(kNoHeader);
  polls_left_ = view.spec.searchPolls;
  return Status::Done;
}

std::vector<std::uint8_t> ProfileSearch::Result() {
  const bool running = polls_left_ > 0;
  if (running) --polls_left_;
  const State state = running ? State::Running : outcome_;
  std::vector<std::uint8_t> data{static_cast<std::uint8_t>(profile_ << 4 | static_cast<int>(state)), 0, 0};
  AppendBig(data, running ? kNoHeader : header_, 2);
  return data;
}

}  // namespace ostrel::sim
