// One JSON object as a line of text.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace ostrel::host {

/// Keeps the fields in the order in which they were set.
using Json = nlohmann::ordered_json;

/// Of what programs read: rises when a field goes away or means something else, not when one is added.
inline constexpr int kJsonVersion = 1;

/// The beginning of every line.
[[nodiscard]] inline Json Event(const char* name) { return {{"event", name}, {"version", kJsonVersion}}; }

/// What is no UTF-8 is replaced.
[[nodiscard]] inline std::string Dump(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace ostrel::host
