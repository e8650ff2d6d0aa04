// Variables of the test program's own environment.
#pragma once

#include <string>

namespace ostrel::test {

/// An empty value removes the variable.
void SetVariable(const std::string& name, const std::string& value);

}  // namespace ostrel::test
