#include <time.h>

#include <cstdlib>

#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

/// The script names the zone that it has given to the system. A TZ of the environment would be read by the run-time library,
/// which knows no other rules for summer time than one country's.
std::string ZoneOfProcess() {
  SetVariable("TZ", "");
  _tzset();
  const char* const zone = std::getenv("OSTREL_TEST_ZONE");
  return zone == nullptr ? "" : zone;
}

}  // namespace

void SetVariable(const std::string& name, const std::string& value) { ::_putenv((name + '=' + value).c_str()); }

TimeZone::TimeZone(const std::string& zone) : applies_(zone == ZoneOfProcess()) {}

TimeZone::~TimeZone() = default;

}  // namespace ostrel::test
