// The registry for the life of a test. Where it is a file, a file of the test's own; on Windows the tests run in a
// system that was made for them.
#pragma once

#include "tests/support/Environment.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {

class RegistryForTest {
 public:
  RegistryForTest() { SetVariable("OSTREL_REGISTRY", File()); }
  RegistryForTest(const RegistryForTest&) = delete;
  RegistryForTest& operator=(const RegistryForTest&) = delete;
  ~RegistryForTest() { SetVariable("OSTREL_REGISTRY", ""); }

  [[nodiscard]] std::string File() const { return folder_.File("deeper/registry"); }

 private:
  TemporaryFolder folder_;
};

}  // namespace ostrel::test
