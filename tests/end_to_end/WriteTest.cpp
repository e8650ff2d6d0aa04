// Clients' writes from a command line to the simulated meter's memory and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/end_to_end/Programs.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

// What would harm a customer is refused before anything goes to the meter, and what went is on record.
TEST(Writes, AreTakenRefusedOrNeverSent) {
  Bench bench;
  const std::string trace = bench.File("trace.log");
  const std::string writes = bench.File("writes.log");
  bench.StartMeters({"1:1", "12:1:password2=222222", "13:1:silent=1"});
  const std::string tags = "tags = [\"Frequency\"]\n";
  const std::string lists = R"(read_only = ["*Sunday"]
writable = ["Limit*WeekDay", "Limit*Sunday", "LoadControl", "*Limit*T*", "Time *", "*Command", "* Transformation *", "Start*",
            "Indication *", "Exchange"])";
  bench.Configure(
      "poll_period_s = 0\nretries = 2",
      MeterTable("feeder", 1, 1, tags + lists) + MeterTable("locked", 12, 1, tags) + MeterTable("silent", 13, 1, tags),
      "write_log = \"" + writes + "\"\ntrace = { file = \"" + trace + "\", settings = \"DBG_COMMON=1 FS=16\" }");
  for (const TableRow& row : ReadTable("end_to_end/writes.tsv", 6)) {
    SCOPED_TRACE(testing::PrintToString(row));
    for (const std::string& file : {trace, writes}) std::filesystem::remove(file);
    const HostRun run = bench.Run({"write", "--meter", row[0], row[1], row[2], "--json"});
    EXPECT_EQ(row[3] == "accepted" ? 0 : row[3] == "-" ? 2 : 3, run.exitCode) << run.errors;
    if (row[3] == "-") {
      EXPECT_THAT(FileText(trace), Not(ContainsRegex("> .. 03 ")));
      EXPECT_EQ("", FileText(writes));
    } else {
      ASSERT_EQ(run.exitCode == 0 ? 1U : 2U, run.events.size()) << run.errors;
      EXPECT_EQ(row[3], run.events[0]["outcome"]);
      const auto line = nlohmann::json::parse(FileText(writes));
      EXPECT_EQ(run.events[0]["before"], line["before"]);
      EXPECT_EQ(run.events[0]["after"], line["after"]);
      EXPECT_NE("", line["user"]);
    }
    if (row[3] == "accepted") {
      EXPECT_EQ(nlohmann::json::parse(row[4]), nlohmann::json::array({run.events[0]["before"], run.events[0]["after"]}));
    } else {
      EXPECT_THAT(run.errors, HasSubstr(row[4]));
    }
    if (row[5] != "-") {
      EXPECT_THAT(FileText(trace), HasSubstr("> " + row[5] + "\r\n"));
    }
  }
  EXPECT_EQ(2, bench.Run({"exchange", "01 03 2F 08 00 00 00 00 0A"}).exitCode);
  EXPECT_THAT(FileText(trace), Not(ContainsRegex("> .. 03 ")));
}

TEST(Writes, CannotBeBegunWithoutTheirLog) {
  Bench bench;
  bench.StartMeters({"1:1"});
  bench.Configure("", MeterTable("feeder", 1, 1),
                  "write_log = \"/dev/null/writes\"\ntrace = { file = \"" + bench.File("trace.log") + "\" }");
  EXPECT_EQ(5, bench.Run({"write", "--meter", "feeder", "LimitPowerWeekDay", "5000"}).exitCode);
  EXPECT_EQ("", FileText(bench.File("trace.log")));
}

TEST(Output, ThatCannotBeWrittenEndsWithACodeOfItsOwn) {
  Bench bench;
  bench.StartMeters({"1:1"});
  bench.Configure("poll_period_s = 0", MeterTable("feeder", 1, 1, "tags = [\"Frequency\"]"));
  std::filesystem::create_symlink("/dev/full", bench.File("full"));
  const std::vector<std::vector<std::string>> commands = {
      {"history", "--meter", "feeder", "A+ Month Tariff Sum"}, {"run", "--json"}, {"run"}, {"check"}};
  for (std::vector<std::string> arguments : commands) {
    arguments.insert(arguments.end(), {"--config", bench.File("host.toml")});
    Background host("ostrel-host", arguments, bench.File("full"));
    EXPECT_EQ(5, host.Wait(60)) << arguments[0];
    EXPECT_THAT(host.Errors(), HasSubstr("No space left on device"));
  }
  EXPECT_EQ(2, bench.RunPlain({"check", "--config", bench.File("")}).exitCode) << "a folder is no configuration";
}

}  // namespace
}  // namespace ostrel::test
