// Every command once, as an engineer gives it: what it says and how it ends; and what no command but `run` may do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;

constexpr const char* kMeter = R"(
[[channel]]
port = "COM1"
device = "simulated"
poll_period_s = 0
[[channel.meter]]
name = "feeder"
address = 12
type = "СЭТ-4ТМ.02М,03М"
level1_password = "abcdef"
level2_password = "secret"
tags = ["Frequency"]
)";

TEST(Commands, EndWithTheirResultAndCode) {
  Bench bench;
  const std::string trace = bench.File("trace.log");
  WriteBytes(bench.File("host.toml"),
             "clock_correction_days = 7\ntrace = { file = \"" + trace + "\", settings = \"DBG_COMMON=1 FS=16\" }\n" + kMeter);
  const struct {
    std::vector<std::string> arguments;
    int exitCode;
    const char* said;  // on either output
    bool setsClocks = false;
  } rows[] = {
      {{"check"}, 0, "COM1 feeder address 12 СЭТ-4ТМ.02М,03М: N "},
      {{"read", "--meter", "feeder", "Meter Type", "Frequency"}, 0, "Meter Type = СЭТ-4ТМ.03М (good)\n"},
      {{"read", "--meter", "feeder", "Nothing"}, 2, "the meter has no tag \"Nothing\""},
      {{"read", "--meter", "other", "Frequency"}, 2, "other"},
      {{"exchange", "0C", "0805"}, 0, "sent      0C 08 05 76 00\nreceived  0C 05 C4 B3\n"},
      {{"exchange", "0D 00"}, 3, "COM1: no answer"},
      {{"exchange", "0G"}, 2, "\"0G\" is not hexadecimal"},
      {{"write", "--meter", "feeder", "LimitPowerWeekDay", "5"}, 0, "  after    5\n  outcome  accepted\n"},
      {{"history", "--meter", "feeder", "40080"}, 0, "feeder  A+ Year Tariff Sum  [kWh]\n"},
      {{"run", "--passes", "2"}, 0, "COM1 pass 2 took ", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const auto host = bench.StartHost(row.arguments);
    EXPECT_EQ(row.exitCode, host->Wait(60));
    EXPECT_THAT(host->Output() + host->Errors(), HasSubstr(row.said));
    const bool set = ReadBytes(trace).find(" 0C 03 0D ") != std::string::npos;
    EXPECT_EQ(row.setsClocks, set) << "a meter's clock was set";
  }
}

TEST(Commands, TheDemoPollsListsAndWrites) {
  Bench bench;
  Background demo("ostrel-host", {"demo", "--seconds", "1"}, bench.File("demo"));
  EXPECT_EQ(0, demo.Wait(120)) << demo.Errors();
  for (const char* part : {"СЭТ-4ТМ.02М,03М  address 13", "read back 5000: accepted", "P+ Profile Power"}) {
    EXPECT_THAT(demo.Output() + demo.Errors(), HasSubstr(part));
  }
}

// What is said beforehand of a pass, and afterwards of a value, is what goes over the line.
TEST(Plan, IsWhatThePassThenCosts) {
  Bench bench;
  bench.StartMeters({"12:1", "13:12"});
  // Whole catalogues: a request that is counted wrongly shows in the sums. Of an event log the same record is asked four times
  // in a row, which looks like the port's repeats.
  bench.Configure("poll_period_s = 1", MeterTable("three-phase", 12, 1) + MeterTable("house", 13, 12));
  const HostRun run = bench.Run({"plan", "--measure", "--turnaround-ms", "0", "--json"});
  EXPECT_EQ(0, run.exitCode) << run.errors;
  ASSERT_EQ(1U, run.events.size());
  const auto& plan = run.events[0];
  const auto& measured = plan["measured"];
  // The port may ask some of them twice before it believes the answer.
  EXPECT_EQ(plan["pass"]["requests"], measured["requests"].get<int>() - measured["repeats"].get<int>()) << plan;
  for (const char* bytes : {"sent_bytes", "received_bytes"}) {
    const int extra = measured[bytes].get<int>() - plan["pass"][bytes].get<int>();
    EXPECT_TRUE(extra == 0 || measured["repeats"] != 0) << bytes << " " << extra;
    EXPECT_GE(extra, 0) << bytes;
  }
  EXPECT_GT(plan["pass"]["seconds"], 1.0) << "longer than its period, which is said";
}

TEST(Why, FindsTheExchangeOfEveryTag) {
  Bench bench;
  bench.StartMeters({"12:1"});
  bench.Configure("", MeterTable("feeder", 12, 1, "event_log = 1"));
  const HostRun run = bench.Run({"read", "--meter", "feeder", "--why", "--json", "*"});
  std::map<int, std::string> requests;
  for (const auto& event : run.events) {
    if (event["event"] != "why") continue;
    EXPECT_NE("the meter did not answer this request", event["reason"]) << event;
    if (event["request"] != "") requests[event["id"]] = event["request"];
  }
  // All but the five commands, the log number, the exchange switch and the angles and the month that are reserved.
  EXPECT_EQ(244U - 5 - 2 - 4 - 1, requests.size());
  EXPECT_EQ("0C 08 05 76 00", requests[20002]);
}

}  // namespace
}  // namespace ostrel::test
