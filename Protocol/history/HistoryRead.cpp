// One archived value. An energy is read from the meter now; a power is given from the records of the last listing.
#include <algorithm>
#include <array>

#include "Protocol/history/EnergyArchive.h"
#include "Protocol/history/HistoryClasses.h"
#include "Protocol/history/HistoryOperations.h"
#include "Protocol/history/HistoryState.h"
#include "Protocol/history/HistoryTime.h"
#include "Protocol/meter/MeterRequest.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/HistoryQuality.h"
#include "platform/clock.h"

namespace ostrel {
namespace {

/// What the meter has to say before one of its archives is asked.
struct EnergyContext {
  TransformCoefficients coefficients;
  SYSTEMTIME clock;
};

bool ReadEnergyContext(Meters& meters, const HistoryItem& item, EnergyContext& context) {
  if (ReadTransformCoefficients(meters, item.DeviceIndex, item.MeterType, context.coefficients) == 0) return false;
  platform::Sleep(kPauseBeforeClockMs);
  return ReadMeterTime(meters, item.DeviceIndex, context.clock) != 0;
}

bool IsCumulative(std::uint32_t historyClass) { return historyClass >= kHistoryCumulativeDay; }

/// The VARIANT's type word is the host's; only the data are written.
void StoreEnergy(double energy, std::uint32_t historyClass, HistoryValue& value) {
  if (IsCumulative(historyClass)) {
    value.Value.dblVal = energy;
  } else {
    value.Value.fltVal = static_cast<float>(energy);
  }
  value.Quality = kHistoryGood;
}

std::uint32_t AskEnergy(Meters& meters, const MeterRef& meter, const EnergyQuestion& question, std::uint32_t tagId,
                        const TransformCoefficients& coefficients, HistoryValue& value) {
  EnergyRequest request;
  const EnergySelection selection = BuildEnergyRequest(question, request);
  if (selection == EnergySelection::NoArchive) return 1;
  std::array<std::uint8_t, kEnergyAnswer> answer{};
  std::uint32_t meterConstant = 0;
  if (selection == EnergySelection::Failed || !AskMeter(meters, meter, request.Bytes(), answer, meterConstant)) {
    value.Quality = kHistoryBad;
    return 0;
  }
  const auto energy = DecodeEnergy(answer, tagId, meterConstant, coefficients);
  if (energy) {
    StoreEnergy(*energy, question.historyClass, value);
  } else {
    value.Quality = kHistoryBad;  // the meter answered, but how many impulses make a kWh is not known
  }
  return 1;
}

std::uint32_t ReadEnergy(Meters& meters, const MeterRef& meter, std::uint32_t meterType, const HistoryItem& item,
                         std::uint32_t historyClass, const SYSTEMTIME& asked, HistoryValue& value) {
  EnergyContext context{};
  if (!ReadEnergyContext(meters, item, context)) return 0;
  FILETIME today{};
  if (!platform::FieldsToFileTime(StartOfDay(context.clock), today)) return 1;
  const EnergyQuestion question{.historyClass = historyClass,
                                .meterType = meterType,
                                .tariff = item.Tariff,
                                .asked = StartOfDay(asked),
                                .clock = StartOfDay(context.clock)};
  return AskEnergy(meters, meter, question, item.TagId, context.coefficients, value);
}

/// The records of the last listing, if it was of this tag of this meter: a read of any other one is left as it came, so
/// that no value of another tag or meter ever goes out as this one's. The records stand in ascending order of time.
void ServeFromCache(Meters& meters, const HistoryState& kept, const HistoryItem& item, const FILETIME& time,
                    HistoryValue& value) {
  const platform::CriticalSectionGuard guard(meters.ProfileDataLock);
  const ProfileCacheKey& key = kept.ProfileCacheOwner;
  if (key.tagId != item.TagId || key.meter.device != item.DeviceIndex || FindMeter(meters, key.meter) == nullptr) return;
  const auto& cache = kept.ProfileCache;
  const auto behind =
      std::ranges::upper_bound(cache, Ticks(time), {}, [](const ProfileRecord& record) { return Ticks(record.Time); });
  if (behind == cache.begin()) return;
  const ProfileRecord& record = *std::prev(behind);
  if (Ticks(record.Time) != Ticks(time) || record.TagId != item.TagId) return;
  value.Value = record.Value;
  value.Quality = record.Quality;
}

}  // namespace

std::uint32_t ReadArchivedValue(Meters& meters, HistoryState& kept, std::uint32_t meterType, const HistoryItem& item,
                                const FILETIME& time, HistoryValue& value) {
  const auto found = kept.HistoryClassMap.find(item.TagId);
  SYSTEMTIME asked{};
  if (found == kept.HistoryClassMap.end() || !platform::FileTimeToFields(time, asked)) return 1;
  const auto state = LookAtMeter(meters, item.DeviceIndex);
  if (!state) return 0;
  const ProfileClass* const profile = FindProfileClass(found->second);
  if (profile == nullptr) return ReadEnergy(meters, state->meter, meterType, item, found->second, asked, value);
  if (Contains(profile->read, meterType)) ServeFromCache(meters, kept, item, time, value);
  return 1;
}

}  // namespace ostrel
