// The history tags: energies by day, month and year, three load profiles, cumulative energies. One id run for each class.
#include "Protocol/model/TagCatalogue.h"
#include "platform/variant.h"

namespace ostrel {
namespace {

struct HistoryRun {
  std::uint32_t first;
  std::uint32_t last;
  std::uint32_t dataType;
  HistoryClass historyClass;
};

constexpr HistoryRun kHistoryRuns[] = {
    {.first = 40000, .last = 40035, .dataType = VT_R4, .historyClass = kHistoryDay},
    {.first = 40036, .last = 40071, .dataType = VT_R4, .historyClass = kHistoryMonth},
    {.first = 40072, .last = 40107, .dataType = VT_R4, .historyClass = kHistoryYear},
    {.first = 40108, .last = 40111, .dataType = VT_R4, .historyClass = kHistoryProfile},
    {.first = 40112, .last = 40115, .dataType = VT_R4, .historyClass = kHistoryAdditionalProfile},
    {.first = 40116, .last = 40119, .dataType = VT_R4, .historyClass = kHistoryThirdProfile},
    {.first = 40120, .last = 40155, .dataType = VT_R8, .historyClass = kHistoryCumulativeDay},
    {.first = 40156, .last = 40191, .dataType = VT_R8, .historyClass = kHistoryCumulativeMonth},
    {.first = 40192, .last = 40227, .dataType = VT_R8, .historyClass = kHistoryCumulativeYear},
};

constexpr bool RunsAdjoin() {
  std::uint32_t next = kFirstHdaId;
  for (const HistoryRun& run : kHistoryRuns) {
    if (run.first != next || run.last < run.first) return false;
    next = run.last + 1;
  }
  return next == kLastHdaId + 1;
}
static_assert(RunsAdjoin(), "every history tag has exactly one run");

constexpr auto kDataTypes = [] {
  std::array<std::uint32_t, kHdaTagCount> types{};
  for (const HistoryRun& run : kHistoryRuns) {
    for (std::uint32_t id = run.first; id <= run.last; ++id) types[id - kFirstHdaId] = run.dataType;
  }
  return types;
}();

}  // namespace

const std::array<std::uint32_t, kHdaTagCount>& HistoryDataTypes() { return kDataTypes; }

std::map<std::uint32_t, std::uint32_t> MakeHistoryClassMap() {
  std::map<std::uint32_t, std::uint32_t> classes;
  for (const HistoryRun& run : kHistoryRuns) {
    for (std::uint32_t id = run.first; id <= run.last; ++id) classes.emplace_hint(classes.end(), id, run.historyClass);
  }
  return classes;
}

}  // namespace ostrel
