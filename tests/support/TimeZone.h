// The computer's time zone for the life of a test.
#pragma once

#include <time.h>

#include <cstdlib>
#include <string>

namespace ostrel::test {

class TimeZone {
 public:
  explicit TimeZone(const char* zone) : hadZone_(std::getenv("TZ") != nullptr), zone_(hadZone_ ? std::getenv("TZ") : "") {
    Use(zone);
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone() { Use(hadZone_ ? zone_.c_str() : nullptr); }

 private:
  static void Use(const char* zone) {
    if (zone == nullptr) {
      unsetenv("TZ");
    } else {
      setenv("TZ", zone, 1);
    }
    tzset();
  }

  const bool hadZone_;
  const std::string zone_;
};

}  // namespace ostrel::test
