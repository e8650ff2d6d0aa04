// One request to a meter's archive.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Protocol/model/MeterRef.h"

namespace ostrel {

class Meters;
struct DeviceEntry;

/// What an operation looks at before its first request.
struct MeterState {
  MeterRef meter;
  bool exchangeOn;
};

/// The meter at a place of the device table as it stands now, taken under ProfileDataLock: another thread may be changing the
/// table. Does not wait for the line.
[[nodiscard]] std::optional<MeterState> LookAtMeter(Meters& meters, std::uint32_t device);

/// The meter's record as long as it is the one that was meant, else null. Not to be kept across a request. The
/// caller holds ExchangeLock or ProfileDataLock, both of which a change of the device table takes.
[[nodiscard]] DeviceEntry* FindMeter(Meters& meters, const MeterRef& meter);

/// Sends the bytes that stand between address and check, at most 16; true when `answer` was filled with a valid frame of
/// exactly its size and the meter is still the one that was meant. A failure is written to the event log after the line is free.
[[nodiscard]] bool AskMeter(Meters& meters, const MeterRef& meter, std::span<const std::uint8_t> body,
                            std::span<std::uint8_t> answer);

/// The same for an answer that is scaled by the meter's constant, which is given as it stood in this transaction: the poll
/// thread learns it anew after each connection, under ExchangeLock.
[[nodiscard]] bool AskMeter(Meters& meters, const MeterRef& meter, std::span<const std::uint8_t> body,
                            std::span<std::uint8_t> answer, std::uint32_t& meterConstant);

}  // namespace ostrel
