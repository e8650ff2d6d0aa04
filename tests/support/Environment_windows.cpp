#include <cstdlib>

#include "tests/support/Environment.h"

namespace ostrel::test {

void SetVariable(const std::string& name, const std::string& value) { ::_putenv((name + '=' + value).c_str()); }

}  // namespace ostrel::test
