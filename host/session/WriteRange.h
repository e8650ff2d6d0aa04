// What may be written to a tag. The plug-in carries out whatever its host asks for: it brings a value that does not fit to one
// that does, so that a limit of "nothing" becomes one of 1 W and a customer stands in the dark. A person at a command line is
// told the range instead, before anything goes to the meter.
#pragma once

#include <cstdint>

#include "host/session/Catalogue.h"
#include "platform/variant.h"

namespace ostrel::host {

/// By what the tag itself can hold, whatever the meter. Throws Failure (usage) with the range.
void CheckRange(const TagDefinition& tag, const VARIANT& value);

/// Energies go out as a number of the meter's own impulses, `meterConstant` per kWh: what is no impulse, or more of them than
/// the command holds, is refused, and everything while the constant is not known. Throws Failure (usage).
void CheckImpulses(const TagDefinition& tag, const VARIANT& value, std::uint32_t meterConstant);

/// By how much what is read back may be off from what was sent, the command's own rounding.
[[nodiscard]] float WriteTolerance(const TagDefinition& tag, float sent, std::uint32_t meterConstant);

}  // namespace ostrel::host
