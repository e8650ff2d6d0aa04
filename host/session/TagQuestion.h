// How a tag is read, told to people: what is asked, what comes back, and how the value follows from its bytes. Rows in the order
// of the catalogue; the facts are the meters' protocol's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/session/Catalogue.h"

namespace ostrel::host {

struct TagQuestion {
  const char* family = "";       // for sums over many tags
  std::size_t requestBytes = 0;  // with address and check; 0: the tag is not asked of the meter
  std::size_t answerBytes = 0;   // likewise; of an answer without a fixed length what meters send
  bool needsClock = false;       // the meter's clock is read before each: its month stands in the request
  bool shares = true;            // one answer serves every tag with the same request
  const char* bytes = "";        // of the answer, counted from its address as 0
  const char* formula = "";
};

[[nodiscard]] TagQuestion QuestionOf(const TagDefinition& tag);

/// Whether this is the request that reads the tag, with whatever month and event log stand in it.
[[nodiscard]] bool IsRequestOf(const TagDefinition& tag, const std::vector<std::uint8_t>& request);

}  // namespace ostrel::host
