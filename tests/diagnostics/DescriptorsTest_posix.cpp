// Log and trace open their file for every line; none may stay open.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "Protocol/diagnostics/CLogFile.h"
#include "Protocol/diagnostics/DebugTrace.h"
#include "platform/text.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {
namespace {

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

TEST(Descriptors, AreAsManyAfterAHundredLinesAsAfterOne) {
  const TemporaryFolder folder;
  CLogFile log(folder.File("e.log").c_str(), 1, true);
  DebugTrace trace(platform::Utf8ToOle(folder.File("t.log")).c_str(), platform::Utf8ToOle("DBG_COMMON=1 FS=1").c_str());
  const auto write = [&] {
    log.WriteEvent(std::string(100, 'x'));
    trace.WriteCommon(1, "%s", std::string(20000, 'y').c_str());
  };
  write();
  const std::ptrdiff_t before = OpenDescriptors();
  for (int line = 0; line < 100; ++line) write();
  EXPECT_EQ(before, OpenDescriptors());
  EXPECT_TRUE(std::filesystem::exists(folder.File("t.log_reserv"))) << "also where a file is set aside";
}

}  // namespace
}  // namespace ostrel::test
