// The event log: its lines, its limit, and who may be in its way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "Protocol/diagnostics/CLogFile.h"
#include "platform/text.h"
#include "platform/virtual_clock.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

class LogFile : public ::testing::Test {
 protected:
  const TemporaryFolder folder;
  const std::string path = folder.File("e.log");
  CLogFile log{path.c_str(), 1024, true};
};

TEST_F(LogFile, StampsItsLines) {
  const TimeZone zone("MSK-3");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  platform::VirtualClock clock(1709647629042);  // 2024-03-05 14:07:09.042 UTC
  platform::ReplaceClock(&clock);
  log.WriteEvent("COM3 text");
  platform::ReplaceClock(nullptr);
  EXPECT_EQ("[ 05/03/2024 17:07:09.042 ] COM3 text\r\n", ReadBytes(path));
}

TEST_F(LogFile, CutsALineThatIsTooLong) {
  log.WriteEvent(std::string(171, 'x'));
  log.WriteEvent(std::string(172, 'x'));
  EXPECT_THAT(ReadLines(path), ElementsAre(::testing::SizeIs(199), ::testing::SizeIs(199)));
}

TEST_F(LogFile, LiesWhereARussianPathSays) {
  const auto russian = platform::Utf8ToSystemPath(folder.File("") + "журнал.log");
  ASSERT_TRUE(russian);
  CLogFile(russian->c_str(), 1024, true).WriteEvent("COM3 text");
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(folder.File("")) / u8"журнал.log"));
}

TEST_F(LogFile, StartsAnewBeyondItsLimit) {
  using Sizes = std::vector<std::uint32_t>;  // limit in kilobytes, before, after
  for (const Sizes& row : {Sizes{1, 1024, 1029}, {1, 1025, 5}, {0, 1, 5}, {0, 0, 5}, {4194304, 5000, 5005}}) {
    WriteBytes(path, std::string(row[1], '.'));
    EXPECT_EQ(1, log.SetMaxSize(row[0]).AppendLine("abc"));
    EXPECT_EQ(row[2], ReadBytes(path).size()) << row[0] << " KB, " << row[1];
  }
}

TEST_F(LogFile, WritesNothingWhenDisabledAndSaysWhenItCannot) {
  EXPECT_EQ(0, log.SetEnabled(false).AppendLine("abc"));
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(1, log.SetEnabled(true).AppendLine("abc"));
  std::filesystem::remove(path);
  EXPECT_EQ(1, log.AppendLine("two"));
  EXPECT_EQ("two\r\n", ReadBytes(path)) << "it comes back when it is removed";
  EXPECT_EQ(0, CLogFile(folder.File("missing/e.log").c_str(), 1024, true).AppendLine("abc"));
  EXPECT_EQ(0, CLogFile(std::string(400, 'a').c_str(), 1024, true).AppendLine("abc"));
}

TEST_F(LogFile, KeepsLinesOfSeveralThreadsWhole) {
  const auto write = [this](char letter) {
    for (int i = 0; i < 50; ++i) log.AppendLine(std::string(20, letter));
  };
  std::thread first(write, 'a');
  std::thread second(write, 'b');
  first.join();
  second.join();
  const std::vector<std::string> lines = ReadLines(path);
  EXPECT_EQ(100U, lines.size());
  for (const std::string& line : lines) EXPECT_THAT(line, ::testing::AnyOf(std::string(20, 'a'), std::string(20, 'b')));
}

}  // namespace
}  // namespace ostrel::test
