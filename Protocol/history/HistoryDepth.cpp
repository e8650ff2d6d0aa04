// How many records the meters keep, and how far apart they lie.
#include "Protocol/history/HistoryClasses.h"
#include "Protocol/history/HistoryOperations.h"
#include "Protocol/history/HistoryState.h"
#include "Protocol/meter/MeterRequest.h"
#include "Protocol/meter/Meters.h"

namespace ostrel {
namespace {

constexpr std::int32_t kIntervalUnknown = -1;
constexpr std::int32_t kIntervalProfile = 0;
constexpr std::int32_t kIntervalDay = 2;
constexpr std::int32_t kIntervalMonth = 3;
constexpr std::int32_t kIntervalYear = 4;

/// Records that a meter type keeps, by history class.
struct DepthRow {
  std::uint32_t meterType;
  std::uint32_t depth[9];
};

constexpr DepthRow kDepths[] = {
    {.meterType = 0, .depth = {1, 11, 1, 8192, 0, 0, 0, 0, 0}},
    {.meterType = 1, .depth = {30, 11, 1, 8192, 8192, 0, 31, 12, 2}},
    {.meterType = 2, .depth = {1, 11, 1, 4096, 4096, 0, 2, 12, 2}},
    {.meterType = 3, .depth = {1, 11, 1, 4096, 4096, 0, 2, 12, 2}},
    {.meterType = 6, .depth = {1, 12, 1, 8192, 8192, 0, 2, 13, 2}},
    {.meterType = 7, .depth = {1, 12, 1, 8192, 8192, 0, 2, 13, 2}},
    {.meterType = 8, .depth = {30, 12, 1, 8192, 8192, 8192, 0, 0, 0}},
    {.meterType = 11, .depth = {1, 12, 1, 8192, 8192, 0, 2, 13, 2}},
    {.meterType = 12, .depth = {1, 11, 1, 8192, 0, 0, 2, 12, 2}},
};

std::int32_t EnergyInterval(ArchiveStep step) {
  switch (step) {
    case ArchiveStep::Day:
      return kIntervalDay;
    case ArchiveStep::Month:
      return kIntervalMonth;
    case ArchiveStep::Year:
      return kIntervalYear;
  }
  return kIntervalUnknown;
}

std::int32_t IntervalOfProfile(Meters& meters, std::uint32_t device, Profile profile, std::uint32_t* period) {
  if (period == nullptr) return kIntervalUnknown;
  *period = ReadProfilePeriod(meters, device, profile);
  return *period != 0 ? kIntervalProfile : kIntervalUnknown;
}

}  // namespace

std::uint32_t DepthOf(const HistoryState& kept, std::uint32_t meterType, std::uint32_t tagId) {
  const auto found = kept.HistoryClassMap.find(tagId);
  if (found == kept.HistoryClassMap.end()) return 0;
  for (const DepthRow& row : kDepths) {
    if (row.meterType == meterType) return row.depth[found->second];
  }
  return 0;
}

std::int32_t IntervalOf(Meters& meters, const HistoryState& kept, std::uint32_t tagId, std::uint32_t device,
                        std::uint32_t* period) {
  const auto found = kept.HistoryClassMap.find(tagId);
  if (found == kept.HistoryClassMap.end() || !LookAtMeter(meters, device)) return kIntervalUnknown;
  if (const auto step = EnergyStep(found->second)) return EnergyInterval(*step);
  const ProfileClass* const row = FindProfileClass(found->second);
  return row != nullptr ? IntervalOfProfile(meters, device, row->profile, period) : kIntervalUnknown;
}

}  // namespace ostrel
