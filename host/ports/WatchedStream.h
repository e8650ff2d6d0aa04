// A stream with somebody who looks on.
#pragma once

#include <memory>

#include "host/ports/PortDirectory.h"

namespace ostrel::host {

/// Opens what `open` opens, and tells the watcher of its bytes.
[[nodiscard]] StreamOpener WatchedOpener(StreamOpener open, std::shared_ptr<StreamWatcher> watcher);

}  // namespace ostrel::host
