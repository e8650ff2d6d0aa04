// A meter named by its place in the device table and its address: the table may change between two requests, and what is
// then found at the place is another meter.
#pragma once

#include <cstdint>

namespace ostrel {

struct MeterRef {
  std::uint32_t device;
  std::uint32_t address;
};

}  // namespace ostrel
