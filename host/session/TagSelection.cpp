#include "host/session/TagSelection.h"

#include <charconv>
#include <optional>

#include "host/session/Failure.h"
#include "host/session/NearNames.h"

namespace ostrel::host {
namespace {

bool IsWildcard(std::string_view text) { return text.find_first_of("*?") != std::string_view::npos; }

std::optional<std::uint32_t> AsId(const std::string& text) {
  std::uint32_t id = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), id);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() ? std::optional(id) : std::nullopt;
}

[[noreturn]] void FailUnknown(const std::vector<TagDefinition>& tags, const std::string& text) {
  if (IsWildcard(text)) throw Failure(kExitUsage, "no tag fits \"" + text + "\"");
  std::vector<std::string> names;
  for (const TagDefinition& tag : tags) names.push_back(tag.name);
  throw Failure(kExitUsage, "the meter has no tag \"" + text + "\"" + DidYouMean(text, names));
}

}  // namespace

bool WildcardMatches(std::string_view pattern, std::string_view text) {
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t star = std::string_view::npos;  // the last one seen
  std::size_t retry = 0;                      // where what follows it is tried next
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || (pattern[p] == text[t] && pattern[p] != '*'))) {
      ++p;
      ++t;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      retry = t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++retry;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

std::vector<std::size_t> SelectTags(const std::vector<TagDefinition>& tags, const std::string& text) {
  const std::optional<std::uint32_t> id = AsId(text);
  std::vector<std::size_t> selected;
  const std::string wanted = Lowered(text);
  for (std::size_t i = 0; i < tags.size(); ++i) {
    const std::string name = Lowered(tags[i].name);
    const bool fits = id ? tags[i].id == *id : IsWildcard(text) ? WildcardMatches(wanted, name) : name == wanted;
    if (fits) selected.push_back(i);
  }
  if (selected.empty()) FailUnknown(tags, text);
  return selected;
}

std::size_t SelectTag(const std::vector<TagDefinition>& tags, const std::string& text) {
  if (IsWildcard(text)) throw Failure(kExitUsage, "\"" + text + "\" is a wildcard; one tag is needed");
  return SelectTags(tags, text).front();
}

}  // namespace ostrel::host
