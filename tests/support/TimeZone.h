// Variables of the test program's own environment, and the computer's time zone for the life of a test. A Windows process
// cannot choose its own: there the programs are run once in each zone that tests ask for (tests/windows/all_tests.sh), and a
// test is left to the run in its zone.
#pragma once

#include <string>

namespace ostrel::test {

/// An empty value removes the variable.
void SetVariable(const std::string& name, const std::string& value);

class TimeZone {
 public:
  explicit TimeZone(const std::string& zone);
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone();

  /// Whether the process runs in that zone now.
  [[nodiscard]] bool Applies() const { return applies_; }

 private:
  const std::string before_;
  const bool applies_;
};

inline constexpr const char* kInAnotherZone = "tested by the run in that time zone";

}  // namespace ostrel::test
