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

TEST(LogFile, StampsItsLines) {
  const TimeZone zone("MSK-3");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  platform::VirtualClock clock(1709647629042);  // 2024-03-05 14:07:09.042 UTC
  platform::ReplaceClock(&clock);
  const TemporaryFolder folder;
  CLogFile log(folder.File("e.log").c_str(), 1024, true);
  log.WriteEvent("COM3 text");
  platform::ReplaceClock(nullptr);
  EXPECT_EQ("[ 05/03/2024 17:07:09.042 ] COM3 text\r\n", ReadBytes(folder.File("e.log")));
}

TEST(LogFile, CutsALineThatIsTooLong) {
  const TemporaryFolder folder;
  CLogFile log(folder.File("e.log").c_str(), 1024, true);
  log.WriteEvent(std::string(171, 'x'));
  log.WriteEvent(std::string(172, 'x'));
  EXPECT_THAT(ReadLines(folder.File("e.log")), ElementsAre(::testing::SizeIs(199), ::testing::SizeIs(199)));
}

TEST(LogFile, LiesWhereARussianPathSays) {
  const TemporaryFolder folder;
  const auto path = platform::Utf8ToSystemPath(folder.File("") + "журнал.log");
  ASSERT_TRUE(path);
  CLogFile log(path->c_str(), 1024, true);
  log.WriteEvent("COM3 text");
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(folder.File("")) / u8"журнал.log"));
}

TEST(LogFile, StartsAnewBeyondItsLimit) {
  struct Row {
    std::uint32_t limitKilobytes;
    std::size_t before;
    std::size_t after;
  };
  const Row rows[] = {{1, 1024, 1029}, {1, 1025, 5}, {0, 1, 5}, {0, 0, 5}, {4194304, 5000, 5005}};
  for (const Row& row : rows) {
    const TemporaryFolder folder;
    const std::string path = folder.File("e.log");
    WriteBytes(path, std::string(row.before, '.'));
    CLogFile log(path.c_str(), 7, true);
    EXPECT_EQ(1, log.SetMaxSize(row.limitKilobytes).AppendLine("abc"));
    EXPECT_EQ(row.after, ReadBytes(path).size()) << row.limitKilobytes << " KB, " << row.before;
  }
}

TEST(LogFile, WritesNothingWhenDisabled) {
  const TemporaryFolder folder;
  CLogFile log(folder.File("e.log").c_str(), 1024, false);
  EXPECT_EQ(0, log.AppendLine("abc"));
  EXPECT_FALSE(std::filesystem::exists(folder.File("e.log")));
  EXPECT_EQ(1, log.SetEnabled(true).AppendLine("abc"));
}

TEST(LogFile, SaysWhenItCannotWrite) {
  const TemporaryFolder folder;
  CLogFile log(folder.File("missing/e.log").c_str(), 1024, true);
  EXPECT_EQ(0, log.AppendLine("abc"));
  CLogFile endless(std::string(400, 'a').c_str(), 1024, true);
  EXPECT_EQ(0, endless.AppendLine("abc"));
}

TEST(LogFile, ComesBackWhenItIsRemovedBetweenLines) {
  const TemporaryFolder folder;
  CLogFile log(folder.File("e.log").c_str(), 1024, true);
  log.AppendLine("one");
  std::filesystem::remove(folder.File("e.log"));
  log.AppendLine("two");
  EXPECT_EQ("two\r\n", ReadBytes(folder.File("e.log")));
}

TEST(LogFile, KeepsLinesOfSeveralThreadsWhole) {
  const TemporaryFolder folder;
  CLogFile log(folder.File("e.log").c_str(), 1024, true);
  const auto write = [&log](char letter) {
    for (int i = 0; i < 50; ++i) log.AppendLine(std::string(20, letter));
  };
  std::thread first(write, 'a');
  std::thread second(write, 'b');
  first.join();
  second.join();
  const std::vector<std::string> lines = ReadLines(folder.File("e.log"));
  EXPECT_EQ(100U, lines.size());
  for (const std::string& line : lines) EXPECT_THAT(line, ::testing::AnyOf(std::string(20, 'a'), std::string(20, 'b')));
}

}  // namespace
}  // namespace ostrel::test
