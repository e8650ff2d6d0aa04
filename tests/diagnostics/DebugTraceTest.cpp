// The developers' trace: its settings text, its levels, its lines and its reserve file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <thread>

#include "Protocol/diagnostics/DebugTrace.h"
#include "platform/text.h"
#include "tests/support/TableFile.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

platform::OleString Ole(std::string_view text) { return platform::Utf8ToOle(text); }

/// The highest message level that passes; 127 stands for 127 and above.
int HighestLevel(const DebugTrace& trace, TraceChannel channel) {
  int highest = -129;
  for (int level = -128; level <= 127; ++level) {
    if (trace.IsEnabled(channel, static_cast<std::int8_t>(level))) highest = level;
  }
  return highest;
}

TEST(TraceSettings, LevelsAreRead) {
  DebugTrace trace;
  const auto highestOf = [&trace](const std::string& settings) {
    trace.ApplySettings(Ole("DBG_COMMON=9").c_str());
    trace.ApplySettings(Ole(settings).c_str());
    return HighestLevel(trace, TraceChannel::Common);
  };
  for (const TableRow& row : ReadTable("diagnostics/levels.tsv", 2))
    EXPECT_EQ(row[1], std::to_string(highestOf(row[0]))) << row[0];
  EXPECT_EQ(2, highestOf("DBG_COMMON=\t2"));
  trace.ApplySettings(nullptr);
  EXPECT_EQ(0, HighestLevel(trace, TraceChannel::Common));
}

TEST(TraceSettings, EveryChannelHasItsKey) {
  DebugTrace trace;
  trace.ApplySettings(Ole("DBG_DA=1;DBG_HDA=2;DBG_COMMON=3;DBG_DA_TOOL=4;DBG_HDA_TOOL=5").c_str());
  const TraceChannel channels[] = {TraceChannel::Da, TraceChannel::Hda, TraceChannel::Common, TraceChannel::DaTool,
                                   TraceChannel::HdaTool};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(i + 1, HighestLevel(trace, channels[i])) << i;
  for (const int number : {0, 6, 255}) EXPECT_EQ(-129, HighestLevel(trace, static_cast<TraceChannel>(number))) << number;
}

class TraceFile : public ::testing::Test {
 protected:
  [[nodiscard]] std::vector<std::string> Lines() const { return ReadLines(path); }

  const TemporaryFolder folder;
  const std::string path = folder.File("trace.log");
  const std::string reserve = path + "_reserv";
  DebugTrace trace{Ole(path).c_str(), Ole("DBG_COMMON=2").c_str()};
};

TEST_F(TraceFile, LinesHaveTheirPrefixAndAnyLength) {
  const std::string longText(5000, 'y');
  EXPECT_NE(0, trace.WriteCommon(1, "Write<%u>%s", 2U, " 0C FF"));
  EXPECT_NE(0, trace.WriteCommon(1, "%s", longText.c_str()));
  const std::regex line(R"(PID=\d+ TID=-?\d+ \[ \d{2}/\d{2}/\d{4} \d{2}:\d{2}:\d{2}\.\d{3} \] Write<2> 0C FF)");
  ASSERT_THAT(Lines(), ElementsAre(EndsWith("] Write<2> 0C FF"), EndsWith("] " + longText)));
  EXPECT_TRUE(std::regex_match(Lines().front(), line)) << Lines().front();
}

TEST_F(TraceFile, LevelsDecide) {
  EXPECT_NE(0, trace.WriteCommon(2, "two"));
  EXPECT_EQ(0, trace.WriteCommon(3, "three"));
  EXPECT_NE(0, trace.Write(TraceChannel::Da, 0, "zero"));
  EXPECT_NE(0, trace.Write(TraceChannel::Hda, -1, "below"));
  EXPECT_EQ(0, trace.Write(TraceChannel::Hda, 1, "one"));
  EXPECT_EQ(1, trace.WriteCommon(2, nullptr)) << "without a format the question is whether the level passes";
  EXPECT_EQ(0, trace.WriteCommon(3, nullptr));
  EXPECT_THAT(Lines(), ElementsAre(EndsWith("] two"), EndsWith("] zero"), EndsWith("] below")));
}

TEST_F(TraceFile, IsNotWrittenWithASizeLimitOfZeroNorUnderASecondPathNorWhereItCannotBe) {
  trace.SetFile(Ole(folder.File("other.log")).c_str());
  trace.SetFile(nullptr);
  for (const char* settings : {"DBG_COMMON=2 FS=0", "DBG_COMMON=2 FS=abc", "DBG_COMMON=2 XFS=0"}) {
    trace.ApplySettings(Ole(settings).c_str());
    EXPECT_EQ(0, trace.WriteCommon(1, "x")) << settings;
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  trace.ApplySettings(Ole("DBG_COMMON=2 FS=-1").c_str());
  EXPECT_NE(0, trace.WriteCommon(1, "x"));
  EXPECT_EQ(1U, Lines().size());
  EXPECT_FALSE(std::filesystem::exists(folder.File("other.log")));
  DebugTrace missing(Ole(folder.File("missing/trace.log")).c_str(), Ole("DBG_COMMON=1").c_str());
  EXPECT_EQ(0, missing.WriteCommon(1, "x"));
  EXPECT_EQ(0, DebugTrace().WriteCommon(0, "x"));
}

TEST_F(TraceFile, IsSetAsideBeyondItsLimit) {
  constexpr std::uintmax_t kMegabyte = 1048576;
  const struct {
    const char* settings;
    std::uintmax_t before;
    bool setAside;
  } rows[] = {
      {"DBG_COMMON=1 FS=1", kMegabyte, false},         {"DBG_COMMON=1 FS=1", kMegabyte + 1, true},
      {"DBG_COMMON=1 XFS=7", 7 * kMegabyte + 1, true}, {"DBG_COMMON=1 FS=4096", 8 * kMegabyte, false},
      {"DBG_COMMON=1", 1024 * kMegabyte, false},       {"DBG_COMMON=1", 1024 * kMegabyte + 1, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << row.settings << ", " << row.before);
    WriteBytes(path, "");
    WriteBytes(reserve, "old");
    std::filesystem::resize_file(path, row.before);  // sparse
    trace.ApplySettings(Ole(row.settings).c_str());
    EXPECT_NE(0, trace.WriteCommon(1, "x"));
    EXPECT_EQ(row.setAside ? row.before : 3, std::filesystem::file_size(reserve));
    EXPECT_EQ(row.setAside, std::filesystem::file_size(path) < 200);
  }
}

TEST_F(TraceFile, TwoObjectsAndASettingsThreadShareIt) {
  DebugTrace other(Ole(path).c_str(), Ole("DBG_COMMON=1").c_str());
  const auto write = [](DebugTrace& target) {
    for (int i = 0; i < 100; ++i) target.WriteCommon(1, "%s", std::string(100, 'z').c_str());
  };
  std::thread first([&] { write(trace); });
  std::thread second([&] { write(other); });
  for (int i = 0; i < 100; ++i) other.ApplySettings(Ole("DBG_COMMON=1 FS=2").c_str());
  first.join();
  second.join();
  const std::vector<std::string> lines = Lines();
  EXPECT_EQ(200U, lines.size());
  for (const std::string& line : lines) EXPECT_THAT(line, EndsWith("] " + std::string(100, 'z')));
}

}  // namespace
}  // namespace ostrel::test
