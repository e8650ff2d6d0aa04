// What must hold whatever a line, a meter, a clock and a host's threads do, and the defects that are put in on purpose, one at a
// time, to see that the campaign would find them. Defects stand in the campaign's own system and object, or around functions of
// the product that the linker lets pass through here (PlantedCode.cpp): the product's own code knows nothing of them.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ostrel::campaign {

using Bytes = std::vector<std::uint8_t>;

struct Row {
  std::string_view name;
  std::string_view meaning;
};

inline constexpr Row kInvariants[] = {
    {"none", ""},
    {"no crash", "and no report of a sanitizer"},
    {"right value", "every good value is what the meter held in the exchange's window"},
    {"not stale", "after a failed read the quality is not good within one period"},
    {"no hang", "every call of a host ends within its bound, and there always is a next event"},
    {"accounted", "a request is sent when the one before was answered or given up"},
    {"write once", "every write ends once, and what was confirmed stands in the meter"},
    {"tag once", "every tag is destroyed once, and nothing of it is called after"},
    {"no short lock", "the host is not called under the plug-in's short locks"},
    {"no leak", "memory, descriptors and threads are as they were"},
    {"recovers", "after the last fault all is good again"},
    {"right records", "listed records are the meter's: none wrong, twice, in another order, or left out unsaid"},
    {"not too early", "no request while an answer may still be coming, none without the ordered pauses"},
    {"fair share", "a dead meter and a long history read hold the others up by no more than their share"},
    {"log once", "each loss and each restoration stands in the log once"},
    {"same trace", "the same seed does the same"},
};

inline constexpr Row kPlants[] = {
    {"none", ""},
    {"no-dropping", "input is not dropped before a request"},
    {"no-owed-account", "any frame is believed, whatever may still come"},
    {"no-address-filter", "an answer of another meter is taken"},
    {"length-unchecked", "an answer of any length is taken"},
    {"check-unchecked", "an answer with a wrong check is taken"},
    {"wall-clock-deadline", "time-outs go by the wall clock"},
    {"factors-reset", "factors are reset while another thread reads"},
    {"record-off-by-one", "a profile record is read from the next place"},
    {"day-seam", "the first record of a day is left out of a listing"},
    {"header-kept", "the place of an hour is taken for that of the next one"},
    {"info-kept", "a lost meter counts as known when it comes back"},
    {"write-twice", "a write is sent twice"},
    {"flag-cleared-early", "a write counts as done before it was sent"},
    {"tag-destroyed-twice", "the tags of a removed meter are destroyed twice"},
    {"lost-wake-up", "who waits for a lock is not woken"},
    {"unlock-forgotten", "the line is not let go"},
    {"quality-kept", "values of a lost meter stay good"},
    {"log-twice", "a line is logged twice"},
    {"busy-is-success", "a busy answer counts as done"},
    {"daylight-off-by-one", "local time is an hour off in summer"},
    {"log-forgotten", "a restored link is not logged"},
    {"factors-unread", "a meter counts as known before its factors are read"},
    {"search-not-begun", "the result of the search before is taken for that of this one"},
    {"call-under-short-lock", "an event is reported while values are locked"},
    {"pause-not-kept", "the pause before a request is left out"},
    {"port-not-given-back", "a failed port is not closed"},
    {"write-lost", "a write that the meter did not take at once is given up"},
    {"loss-holds-up", "a lost meter holds the others up for a while"},
};

/// A row of a table by its name; a name that is not there does not compile.
template <const auto& kRows>
struct Named {
  std::size_t row = 0;
  consteval Named(const char* name) {
    while (kRows[row].name != name) ++row;
  }
};

/// The defect that is there now.
struct ActivePlant {
  std::size_t row = 0;
  std::uint32_t asked = 0;
};
inline ActivePlant activePlant;

/// Whether this defect is there: at every `oneIn`-th place that asks.
[[nodiscard]] inline bool Planted(Named<kPlants> plant, std::uint32_t oneIn = 1) {
  return plant.row == activePlant.row && ++activePlant.asked % oneIn == 0;
}

/// Ends the run of the seed: the process says what it saw in the memory that it shares with the one that started it (Runs.cpp).
[[noreturn]] void End(std::size_t invariant, const std::string& what);

/// Whoever sees that something does not hold says so here.
template <class... Things>
[[noreturn]] void Violate(Named<kInvariants> invariant, fmt::format_string<Things...> what, Things&&... things) {
  End(invariant.row, fmt::format(what, std::forward<Things>(things)...));
}

}  // namespace ostrel::campaign
