// Lines for the journal on standard error, with the priorities that it reads there; plain lines on a terminal.
#pragma once

#include <string>

namespace ostrel::station {

enum class Priority : int { Error = 3, Warning = 4, Notice = 5, Info = 6 };

void Say(Priority priority, const std::string& text);

}  // namespace ostrel::station
