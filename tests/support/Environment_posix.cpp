#include <cstdlib>

#include "tests/support/Environment.h"

namespace ostrel::test {

void SetVariable(const std::string& name, const std::string& value) {
  if (value.empty()) {
    ::unsetenv(name.c_str());
  } else {
    ::setenv(name.c_str(), value.c_str(), 1);
  }
}

}  // namespace ostrel::test
