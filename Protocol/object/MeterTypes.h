// The meter types that the plug-in serves. Hosts keep the type id with each meter they configure.
#pragma once

#include <array>

#include "Protocol/object/CProtocol.h"

namespace ostrel {

/// In the order in which a host lists them. The names live as long as the module.
[[nodiscard]] std::array<MeterTypeEntry, kMeterTypeCount> MakeMeterTypes();

}  // namespace ostrel
