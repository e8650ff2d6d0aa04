#include "tests/end_to_end/HistoryRun.h"

#include <gtest/gtest.h>

#include <cmath>

namespace ostrel::test {

History ParseHistory(const HostRun& run) {
  History history{.tags = {}, .qualities = {}, .exitCode = run.exitCode, .errors = run.errors};
  for (const auto& event : run.events) {
    if (event["event"] != "history") continue;
    const int id = event["id"];
    const std::string time = event["time"];
    history.qualities[{id, time}] = event["quality"];
    if (event["value"].is_number()) history.tags[id][time] = event["value"];
  }
  return history;
}

History ReadHistory(Bench& bench, std::vector<std::string> tags, const std::string& from, const std::string& to) {
  std::vector<std::string> arguments = {"history", "--meter", "m", "--json", "--from", from, "--to", to};
  arguments.insert(arguments.end(), tags.begin(), tags.end());
  return ParseHistory(bench.Run(arguments));
}

void StartMeter(Bench& bench, std::uint32_t type, const std::string& more) {
  bench.StartMeters({MeterText(1, type, more)});
  bench.Configure("timeout_ms = 200", MeterTable("m", 1, type));
}

sim::Meter ModelOf(const std::string& text) {
  sim::MeterSpec spec;
  std::string error;
  EXPECT_TRUE(sim::ParseMeterSpec(text, spec, error)) << error;
  return sim::Meter(spec, 1);
}

void ExpectNear(double expected, double value, double summands, const std::string& what) {
  EXPECT_NEAR(expected, value, std::fabs(expected) * 1.2e-7 * summands + 1e-9) << what;
}

}  // namespace ostrel::test
