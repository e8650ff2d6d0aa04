// "write METER TAG VALUE" as it is typed while polling; words with blanks stand in quotes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::host {

struct WriteLine {
  std::string meter;
  std::string tag;
  std::string value;
};

/// Words between blanks; a word in double quotes may hold blanks.
[[nodiscard]] std::vector<std::string> SplitWords(std::string_view text);

/// Nothing when the line is of another form. A tag's name may do without quotes: it is what stands between.
[[nodiscard]] std::optional<WriteLine> ParseWriteLine(std::string_view text);

}  // namespace ostrel::host
