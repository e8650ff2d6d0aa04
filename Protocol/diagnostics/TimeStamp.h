// The local time as it stands in front of every line of the event log and the trace.
#pragma once

#include <string>

namespace ostrel {

/// "[ 05/03/2024 14:07:09.042 ] "
[[nodiscard]] std::string LocalTimeStamp();

}  // namespace ostrel
