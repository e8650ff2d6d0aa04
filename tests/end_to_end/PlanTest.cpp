// What the program says beforehand of a pass, and afterwards of a value, against what goes over the line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

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
  std::size_t asked = 0;
  for (const auto& event : run.events) {
    if (event["event"] != "why") continue;
    EXPECT_NE("the meter did not answer this request", event["reason"]) << event;
    asked += event["request"] == "" ? 0U : 1U;
  }
  // All but the five commands, the log number, the exchange switch and the angles and the month that are reserved.
  EXPECT_EQ(244U - 5 - 2 - 4 - 1, asked);
  EXPECT_EQ("0C 08 05 76 00", [&run] {
    for (const auto& event : run.events) {
      if (event["event"] == "why" && event["id"] == 20002) return event["request"].get<std::string>();
    }
    return std::string();
  }());
}

}  // namespace
}  // namespace ostrel::test
