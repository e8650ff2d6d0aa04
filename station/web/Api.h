// What the page and other programs may ask, each a row of one table.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "station/passing/Json.h"
#include "station/web/WebServer.h"

namespace ostrel::station {

/// A parameter of the question by its name; empty when it is not there.
using Asked = std::function<std::string(const char* key)>;

struct ApiRow {
  const char* path;
  const char* what;
  Json (*answer)(WebParts& parts, const Asked& asked);  // throws host::Failure for what cannot be asked
};

[[nodiscard]] const std::vector<ApiRow>& ApiRows();
[[nodiscard]] Json HealthJson(WebParts& parts);

/// Of an Authorization header "Basic ..." for this user; nothing when it is none.
[[nodiscard]] std::optional<std::string> BasicPassword(const std::string& header, const std::string& user);

}  // namespace ostrel::station
