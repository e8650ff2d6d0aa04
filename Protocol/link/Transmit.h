// One physical exchange: a request out and what comes back, or the rest of an answer that came in part.
#pragma once

#include <cstdint>

namespace ostrel {

class Line;

/// What Line::TransmitAndRecieve does; opens the port when it is closed, and closes one that has failed. 1 when at least one
/// byte came, and `*count` then says how many. Asks for memory only where it writes the trace or opens the port.
std::uint32_t Transmit(Line& line, const std::uint8_t* request, std::uint32_t requestLength, std::uint8_t* answer,
                       std::uint32_t* count, std::uint32_t offset);

}  // namespace ostrel
