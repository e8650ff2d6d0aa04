// Clients' writes from a command line to the simulated meter's memory and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct WriteRow {
  const char* tag;
  const char* value;
  nlohmann::json after;
  const char* frame;  // with its check, as the trace shows it; null: none is sent
};

TEST(Writes, GoThroughTheLineAndAreReadBack) {
  const WriteRow rows[] = {
      {"Voltage Transformation Coefficient", "220", 220.0, "01 03 1B 00 DC 68 1A"},
      {"LoadControl", "0", 0, "01 03 2F 01 2C 28"},
      {"StartEstimatedInterval", "25", 25, "01 03 2F 07 00 00 00 00 19 59 CA"},
      {"LimitPowerWeekDay", "5000", 5000.0, "01 03 2F 08 00 00 00 C3 50 C8 33"},
      {"LimitEnergyT1", "1", 1.0, "01 03 2F 04 01 00 00 27 10 BF CF"},
      {"R- Limit Tariff Sum", "1", 1.0, "01 03 2F 04 30 00 00 27 10 C2 0B"},
      {"Indication Period Setup", "10", 0.0, "01 03 07 0A 73 EF"},
      {"Exchange", "true", true, nullptr},
  };
  Bench bench;
  bench.StartMeters({"1:1"});
  bench.Configure("poll_period_s = 0", MeterTable("feeder", 1, 1, "tags = [\"Frequency\"]"),
                  "trace = { file = \"" + bench.File("trace.log") + "\", settings = \"DBG_COMMON=1 FS=16\" }");
  for (const WriteRow& row : rows) {
    SCOPED_TRACE(row.tag);
    const HostRun run = bench.Run({"write", "--meter", "feeder", row.tag, row.value, "--json"});
    ASSERT_EQ(1U, run.events.size()) << run.errors;
    const auto& event = run.events.front();
    EXPECT_EQ("accepted", event["outcome"]) << event;
    EXPECT_EQ(0, run.exitCode) << run.errors;
    EXPECT_EQ(row.after, event["after"]);
    if (row.frame != nullptr) {
      EXPECT_THAT(FileText(bench.File("trace.log")), HasSubstr(std::string("> ") + row.frame + "\r\n"));
    }
  }
}

TEST(Writes, SayWhyTheyFailed) {
  Bench bench;
  bench.StartMeters({"12:1:password2=222222", "13:1:silent=1"});
  bench.Configure("retries = 2\ntimeout_ms = 100", MeterTable("locked", 12, 1) + MeterTable("silent", 13, 1));
  const struct {
    const char* meter;
    const char* tag;
    const char* value;
    const char* outcome;
    const char* reason;
  } rows[] = {
      {"locked", "LimitPowerWeekDay", "5", "refused", "refused with status 3"},
      {"silent", "LimitPowerWeekDay", "5", "unanswered", "does not answer"},
      {"locked", "LoadControl", "2", nullptr, "from 0 to 1"},
      {"locked", "LoadControl", "on", nullptr, "on"},
      {"locked", "Frequency", "5", nullptr, "Frequency"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.meter) + " " + row.tag);
    const HostRun run = bench.Run({"write", "--meter", row.meter, row.tag, row.value, "--json"});
    EXPECT_EQ(row.outcome == nullptr ? 2 : 3, run.exitCode) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr(row.reason));
    if (row.outcome != nullptr) {
      ASSERT_EQ(1U, run.events.size());
      EXPECT_EQ(row.outcome, run.events.front()["outcome"]);
    }
  }
}

// What would harm a customer is refused before anything goes to the meter, and what went is on record.
TEST(Writes, OutsideTheirRangeNeverReachTheLine) {
  const struct {
    const char* tag;
    const char* value;
    const char* reason;
  } rows[] = {
      {"LimitPowerWeekDay", "inf", "from 0.1 to 6553.5 W"},
      {"LimitPowerWeekDay", "nan", "from 0.1 to 6553.5 W"},
      {"LimitPowerWeekDay", "-5", "from 0.1 to 6553.5 W"},
      {"LimitPowerWeekDay", "0", "from 0.1 to 6553.5 W"},
      {"LimitEnergyT1", "0", "kWh"},
      // 2^32 half-impulses, of 5000 per kWh.
      {"LimitEnergyT1", "429497", "from 0.0001 to 4294"},
      {"Time Setup", "0", "only 1"},
      {"Indication Recovery Command", "-1", "from 0 to 1"},
      {"Current Transformation Coefficient", "1.5", "whole"},
      {"LimitPowerSunday", "5", "read-only"},
      {"LimitPowerHoliday", "5", "read-only"},
  };
  Bench bench;
  bench.StartMeters({"1:1"});
  bench.Configure(
      "poll_period_s = 0",
      MeterTable("feeder", 1, 1,
                 "tags = [\"Frequency\"]\nread_only = [\"*Sunday\"]\n"
                 "writable = [\"Limit*WeekDay\", \"Limit*Sunday\", \"LimitEnergy*\", \"Time *\", \"*Command\", \"Current T*\"]"),
      "write_log = \"" + bench.File("writes.log") + "\"\ntrace = { file = \"" + bench.File("trace.log") + "\" }");
  for (const auto& row : rows) {
    const HostRun run = bench.Run({"write", "--meter", "feeder", row.tag, row.value});
    EXPECT_EQ(2, run.exitCode) << row.tag;
    EXPECT_THAT(run.errors, HasSubstr(row.reason)) << row.tag;
  }
  EXPECT_EQ(2, bench.Run({"exchange", "01 03 2F 08 00 00 00 00 0A"}).exitCode);
  EXPECT_THAT(FileText(bench.File("trace.log")), Not(HasSubstr("> 01 03")));
  EXPECT_EQ("", FileText(bench.File("writes.log")));
  EXPECT_EQ(0, bench.Run({"write", "--meter", "feeder", "LimitPowerWeekDay", "5000"}).exitCode);
  const auto line = nlohmann::json::parse(FileText(bench.File("writes.log")));
  EXPECT_EQ(500.0, line["before"]);
  EXPECT_EQ(5000.0, line["after"]);
  EXPECT_NE("", line["user"]);
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
