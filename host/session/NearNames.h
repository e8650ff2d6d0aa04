// The known names nearest to one that somebody mistyped.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ostrel::host {

/// Small letters for capital ones, Latin and Cyrillic; in code page 1251.
[[nodiscard]] std::string Lowered(std::string_view utf8);

/// Single-character edits between two texts, letters of either case alike.
[[nodiscard]] std::size_t EditDistance(std::string_view left, std::string_view right);

/// At most `limit` names, the nearest first; none that has nothing to do with `name`.
[[nodiscard]] std::vector<std::string> NearNames(std::string_view name, const std::vector<std::string>& known,
                                                 std::size_t limit = 3);

/// "; did you mean A, B or C?", or nothing when no name is near.
[[nodiscard]] std::string DidYouMean(std::string_view name, const std::vector<std::string>& known);

}  // namespace ostrel::host
