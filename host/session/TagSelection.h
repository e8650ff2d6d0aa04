// Tags by what people write: a name, an id, or a wildcard of names.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/session/Catalogue.h"

namespace ostrel::host {

/// `*` stands for any characters, `?` for one.
[[nodiscard]] bool WildcardMatches(std::string_view pattern, std::string_view text);

/// Indices into `tags` in their order. Throws Failure (usage) when nothing fits: an unknown name lists near ones.
[[nodiscard]] std::vector<std::size_t> SelectTags(const std::vector<TagDefinition>& tags, const std::string& text);

/// The one tag of a name or id; a wildcard is none.
[[nodiscard]] std::size_t SelectTag(const std::vector<TagDefinition>& tags, const std::string& text);

}  // namespace ostrel::host
