// What a history tag must show, computed from the model and the calendar, never from frames or from the meter's memory.
// Energies are in kWh and kvarh, powers in kW and kvar, on the primary side and before they are rounded to a float.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/Meter.h"

namespace ostrel::sim {

/// An energy tag (40000 to 40107, 40120 to 40227) at the shown date of a record, of the tag's tariff or of the one given.
/// Values of a period are dated by its end, readings by their own day. Nothing where the meter does not keep that record.
[[nodiscard]] std::optional<double> ExpectedArchive(const MeterView& view, std::uint32_t tagId, MeterTime date,
                                                    std::optional<int> tariff = {});

struct ExpectedPower {
  double value = 0;
  bool whole = false;  // the interval is over and had power all the time
};

/// A profile tag (40108 to 40119) over the interval that ends at a meter time; `view.wall` has what is shown for it. When the
/// change of the clock shows an hour twice, both are there, an hour of meter time apart. Nothing where there is no record.
[[nodiscard]] std::optional<ExpectedPower> ExpectedProfile(const MeterView& view, std::uint32_t tagId, MeterTime end);

/// The ends of all intervals of the tag's profile with a record, from one meter time up to another, oldest first.
[[nodiscard]] std::vector<MeterTime> ExpectedProfileTimes(const MeterView& view, std::uint32_t tagId, Period ends);

}  // namespace ostrel::sim
