// The host's list of protocol plug-ins, in the registry below the host's own class.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/server/Export.h"
#include "platform/com.h"

namespace ostrel {

struct PlugIn {
  GUID ClassId;
  /// Path of its module, UTF-8.
  std::string Module;
};

/// Every plug-in of the list whose class is registered, in the order of the list.
[[nodiscard]] TAVRINDASERVER_API std::vector<PlugIn> ListedPlugIns();

/// The plug-in of that class, if it is listed.
[[nodiscard]] TAVRINDASERVER_API std::optional<PlugIn> FindPlugIn(const GUID& classId);

}  // namespace ostrel
