// The computer's time zone for the life of a test.
#pragma once

#include <time.h>

#include <cstdlib>
#include <string>

#include "tests/support/Environment.h"

namespace ostrel::test {

class TimeZone {
 public:
  explicit TimeZone(const std::string& zone) { Use(zone); }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone() { Use(before_); }

 private:
  static void Use(const std::string& zone) {
    SetVariable("TZ", zone);
    tzset();
  }

  static std::string Current() {
    const char* const zone = std::getenv("TZ");
    return zone == nullptr ? "" : zone;
  }

  const std::string before_ = Current();
};

}  // namespace ostrel::test
