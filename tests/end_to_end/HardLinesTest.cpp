// Lines on which answers come after the time-out, or bytes that nobody asked for: what is shown as good is what the meter
// holds, the engineer is told, no meter holds the line for long, and Ctrl-C ends it all soon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;

const char* const kTags = "tags = [\"Power P Sum\", \"Voltage Phase 1\", \"Frequency\"]";

struct LateLine {
  const char* fault;
  const char* told;  // null: too few are late for a word in every run
  Bench bench;
  HostRun truth;
  std::unique_ptr<Background> host;

  /// Opens the channel and reads the standing meter without haste; then the run, at the usual settings.
  void Start() {
    bench.StartMeters({"12:1:freeze=1"}, std::string("[[fault]]\nkind = \"late\"\n") + fault);
    bench.Configure("timeout_ms = 3000", MeterTable("feeder", 12, 1, kTags));
    truth = bench.Run({"run", "--passes", "1", "--json"});
    bench.Configure("poll_period_s = 0\ntimeout_ms = 500\nlate_guard_ms = 100\nretries = 3", MeterTable("feeder", 12, 1, kTags));
    host = bench.StartHost({"run", "--seconds", "20", "--every-pass", "--json"});
  }

  void Judge() {
    EXPECT_EQ(0, host->Wait(60));
    const std::string errors = host->Errors();
    int good = 0;
    for (const auto& event : Bench::Read(0, host->Output(), errors).events) {
      if (event["event"] != "tag" || event["quality"] != 192) continue;
      ++good;
      EXPECT_EQ(truth.tags.at({"feeder", event["id"]}).value, event["value"]) << event["tag"];
    }
    EXPECT_LE(3, good);
    const std::size_t first = errors.find("raise timeout_ms");
    EXPECT_EQ(std::string::npos, errors.find("raise timeout_ms", first == std::string::npos ? first : first + 1)) << errors;
    if (told == nullptr) return;
    EXPECT_THAT(errors,
                HasSubstr(std::string("feeder: answers come after the time-out (about ") + told + " ms): raise timeout_ms"));
  }
};

TEST(HardLines, LateAnswersAreNeverShownAsOthers) {
  LateLine lines[] = {{.fault = "ms = 650", .told = "700"},
                      {.fault = "ms = 800", .told = "900"},
                      {.fault = "ms = 800\nevery = 5", .told = nullptr},
                      {.fault = "ms = 1100\nchance = 0.05", .told = nullptr}};
  for (LateLine& line : lines) line.Start();
  for (LateLine& line : lines) {
    SCOPED_TRACE(line.fault);
    line.Judge();
  }
}

// A byte every 15 ms lets no line get quiet; one every 250 ms comes into every answer that is waited for.
TEST(HardLines, StrayBytesHoldNeitherTheOtherMetersNorTheEnd) {
  for (const char* stray : {"ms = 15", "ms = 250"}) {
    SCOPED_TRACE(stray);
    Bench bench;
    bench.StartMeters({"12:1:silent=1", "13:8"}, std::string("[[fault]]\nkind = \"chatter\"\nbytes = 1\n") + stray);
    bench.Configure("", MeterTable("silent", 12, 1, kTags) + MeterTable("well", 13, 8, kTags));
    const auto start = std::chrono::steady_clock::now();
    const auto host = bench.StartHost({"run", "--json"});
    ASSERT_TRUE(host->WaitFor("ПРИБОР:12 Нет ответа"));  // the other one's turn has come
    EXPECT_GT(std::chrono::seconds(10), std::chrono::steady_clock::now() - start);
    host->Signal(SIGINT);
    EXPECT_EQ(0, host->Wait(5));
  }
}

}  // namespace
}  // namespace ostrel::test
