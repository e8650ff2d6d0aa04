#include "station/program/Journal.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace ostrel::station {

void Say(Priority priority, const std::string& text) {
  static const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
  const std::string line = journal ? fmt::format("<{}>{}\n", static_cast<int>(priority), text) : text + "\n";
  std::fputs(line.c_str(), stderr);
}

}  // namespace ostrel::station
