// Clients' writes from a command line to the simulated meter's memory and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;

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
      {"StartEstimatedInterval", "40", 25, "01 03 2F 07 00 00 00 00 19 59 CA"},
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
    const bool limited = event["after"] != event["sent"] && row.after != 0.0;
    EXPECT_EQ(limited ? "differs" : "accepted", event["outcome"]) << event;
    EXPECT_EQ(limited ? 3 : 0, run.exitCode) << run.errors;
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
      {"locked", "LoadControl", "2", "refused", "no command for this value"},
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

}  // namespace
}  // namespace ostrel::test
