// The file that names the faults of a line:
//
//   seed = 7
//   in_order = true   # answers queue, as on a modem; left out: a late one is overtaken
//   [[fault]]
//   kind = "late"     # one of the names of FaultKindFromName
//   every = 10        # each 10th request; or chance = 0.01
//   ms = 80           # or bytes = 1, by kind; spread = 200 draws up to so many ms more
//   address = 12      # only this meter; left out: any
#pragma once

#include <string>

#include "simulator/FaultPlan.h"

namespace ostrel::sim {

/// False when the file cannot be read or holds something else; `error` then names file, line and key.
[[nodiscard]] bool LoadFaultFile(const std::string& path, FaultPlan& plan, std::string& error);

}  // namespace ostrel::sim
