// Defects that are put in on purpose, one at a time, to see that the campaign would find them. They stand in the campaign's own
// system and object, or around functions of the product that the linker lets pass through here (PlantedCode.cpp): the product's
// own code knows nothing of them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace ostrel::campaign {

enum class Plant : std::uint8_t {
  None,
  NoDropping,
  NoOwedAccount,
  NoAddressFilter,
  LengthUnchecked,
  CheckUnchecked,
  WallClockDeadline,
  FactorsReset,
  RecordOffByOne,
  DaySeam,
  HeaderKept,
  InfoKept,
  WriteTwice,
  FlagClearedEarly,
  TagDestroyedTwice,
  LostWakeUp,
  UnlockForgotten,
  QualityKept,
  LogTwice,
  BusyIsSuccess,
  DaylightOffByOne,
  LogForgotten,
  FactorsUnread,
  SearchNotBegun,
  CallUnderShortLock,
  PauseNotKept,
  PortNotGivenBack,
  WriteLost,
  LossHoldsUp,
  Count,
};

struct PlantRow {
  Plant plant;
  std::string_view name;
  std::string_view meaning;
};

[[nodiscard]] std::span<const PlantRow> AllPlants();
[[nodiscard]] std::optional<Plant> FindPlant(std::string_view name);

void Switch(Plant plant);
/// Whether this defect is there now: at every `oneIn`-th place that asks.
[[nodiscard]] bool Planted(Plant plant, std::uint32_t oneIn = 1);

}  // namespace ostrel::campaign
