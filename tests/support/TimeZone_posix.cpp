#include <time.h>

#include <cstdlib>

#include "tests/support/Environment.h"
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

TimeZone::TimeZone(const std::string& zone) : before_(Current()), applies_(Use(zone)) {}

TimeZone::~TimeZone() { Use(before_); }

}  // namespace ostrel::test
