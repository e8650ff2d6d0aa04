// The station's figures as Prometheus reads them.
#pragma once

#include <string>

#include "station/web/WebServer.h"

namespace ostrel::station {

[[nodiscard]] std::string MetricsText(WebParts& parts);

}  // namespace ostrel::station
