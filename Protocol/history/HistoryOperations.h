// The history operations as the host asks for them. They run on its threads, while the poll thread goes on; each looks its
// meter up anew, for it may have been removed.
#pragma once

#include <cstdint>

#include "Protocol/model/HistoryTypes.h"

namespace ostrel {

class Meters;
struct HistoryState;

/// One archived value; 1 also when nothing is known of it, and the value is then left as it came. 0 when the meter could not
/// be asked.
std::uint32_t ReadArchivedValue(Meters& meters, HistoryState& kept, std::uint32_t meterType, const HistoryItem& item,
                                const FILETIME& time, HistoryValue& value);

/// -1 unknown, 0 a profile with its period in minutes, 2 days, 3 months, 4 years.
std::int32_t IntervalOf(Meters& meters, const HistoryState& kept, std::uint32_t tagId, std::uint32_t device,
                        std::uint32_t* period);

/// Records that a meter of this type keeps of a tag; 0 for none.
[[nodiscard]] std::uint32_t DepthOf(const HistoryState& kept, std::uint32_t meterType, std::uint32_t tagId);

/// Appends the record times in [start, end); profiles move both ends onto whole periods, inwards. 0 when the meter could not be
/// asked, is switched off or not known, or memory was short.
std::uint32_t ListRecordTimes(Meters& meters, HistoryState& kept, std::uint32_t meterType, std::uint32_t tagId,
                              std::uint32_t device, FILETIME& start, FILETIME& end, TimestampList& list);

/// 1 when an archive holds a record of exactly this time.
std::uint32_t CheckRecordTime(Meters& meters, const HistoryState& kept, std::uint32_t meterType, std::uint32_t tagId,
                              std::uint32_t device, FILETIME& time);

}  // namespace ostrel
