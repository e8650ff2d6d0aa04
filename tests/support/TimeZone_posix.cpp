#include <time.h>

#include <cstdlib>

#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

std::string Current() {
  const char* const zone = std::getenv("TZ");
  return zone == nullptr ? "" : zone;
}

bool Use(const std::string& zone) {
  SetVariable("TZ", zone);
  tzset();
  return true;
}

}  // namespace

void SetVariable(const std::string& name, const std::string& value) {
  value.empty() ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value.c_str(), 1);
}

TimeZone::TimeZone(const std::string& zone) : before_(Current()), applies_(Use(zone)) {}

TimeZone::~TimeZone() { Use(before_); }

}  // namespace ostrel::test
