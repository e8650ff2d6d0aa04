#include "tests/campaign/Plants.h"

#include <algorithm>

namespace ostrel::campaign {
namespace {

constexpr PlantRow kPlants[] = {
    {Plant::NoDropping, "no-dropping", "input is not dropped before a request"},
    {Plant::NoOwedAccount, "no-owed-account", "any frame is believed, whatever may still come"},
    {Plant::NoAddressFilter, "no-address-filter", "an answer of another meter is taken"},
    {Plant::LengthUnchecked, "length-unchecked", "an answer of any length is taken"},
    {Plant::CheckUnchecked, "check-unchecked", "an answer with a wrong check is taken"},
    {Plant::WallClockDeadline, "wall-clock-deadline", "time-outs go by the wall clock"},
    {Plant::FactorsReset, "factors-reset", "factors are reset while another thread reads"},
    {Plant::RecordOffByOne, "record-off-by-one", "a profile record is read from the next place"},
    {Plant::DaySeam, "day-seam", "the first record of a day is left out of a listing"},
    {Plant::HeaderKept, "header-kept", "the place of an hour is taken for that of the next one"},
    {Plant::InfoKept, "info-kept", "a lost meter counts as known when it comes back"},
    {Plant::WriteTwice, "write-twice", "a write is sent twice"},
    {Plant::FlagClearedEarly, "flag-cleared-early", "a write counts as done before it was sent"},
    {Plant::TagDestroyedTwice, "tag-destroyed-twice", "the tags of a removed meter are destroyed twice"},
    {Plant::LostWakeUp, "lost-wake-up", "who waits for a lock is not woken"},
    {Plant::UnlockForgotten, "unlock-forgotten", "the line is not let go"},
    {Plant::QualityKept, "quality-kept", "values of a lost meter stay good"},
    {Plant::LogTwice, "log-twice", "a line is logged twice"},
    {Plant::BusyIsSuccess, "busy-is-success", "a busy answer counts as done"},
    {Plant::DaylightOffByOne, "daylight-off-by-one", "local time is an hour off in summer"},
    {Plant::LogForgotten, "log-forgotten", "a restored link is not logged"},
    {Plant::FactorsUnread, "factors-unread", "a meter counts as known before its factors are read"},
    {Plant::SearchNotBegun, "search-not-begun", "the result of the search before is taken for that of this one"},
    {Plant::CallUnderShortLock, "call-under-short-lock", "an event is reported while values are locked"},
    {Plant::PauseNotKept, "pause-not-kept", "the pause before a request is left out"},
    {Plant::PortNotGivenBack, "port-not-given-back", "a failed port is not closed"},
    {Plant::WriteLost, "write-lost", "a write that the meter did not take at once is given up"},
    {Plant::LossHoldsUp, "loss-holds-up", "a lost meter holds the others up for a while"},
};
static_assert(std::size(kPlants) == static_cast<std::size_t>(Plant::Count) - 1);

Plant active = Plant::None;
std::uint32_t asked = 0;

}  // namespace

std::span<const PlantRow> AllPlants() { return kPlants; }

std::optional<Plant> FindPlant(std::string_view name) {
  const auto* const row = std::ranges::find(kPlants, name, &PlantRow::name);
  return row == std::end(kPlants) ? std::nullopt : std::optional(row->plant);
}

void Switch(Plant plant) {
  active = plant;
  asked = 0;
}

bool Planted(Plant plant, std::uint32_t oneIn) { return plant == active && ++asked % oneIn == 0; }

}  // namespace ostrel::campaign
