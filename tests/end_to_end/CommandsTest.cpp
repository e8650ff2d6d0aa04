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

}  // namespace
}  // namespace ostrel::test
