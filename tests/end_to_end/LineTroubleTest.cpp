// A line that is not well: silent and forgetful meters, a device that goes away, a port that is not there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kConnectionState = 20210;
constexpr int kExchange = 20211;

TEST(LineTrouble, OneSilentMeterLeavesTheOthersCurrent) {
  Bench bench;
  bench.StartMeters({"12:1", "13:8:silent=1", "14:12:closed=each"});
  // Patient enough for a loaded computer: only the silent meter costs the time, and its hold spares it the second pass.
  bench.Configure("poll_period_s = 1\nretries = 2\ntimeout_ms = 2000",
                  MeterTable("well", 12, 1) + MeterTable("silent", 13, 8) + MeterTable("forgetful", 14, 12));
  const HostRun run = bench.Run({"run", "--passes", "2", "--json"});
  EXPECT_EQ(0, run.exitCode) << run.errors;
  for (const auto& [key, shown] : run.tags) {
    const bool silent = key.first == "silent";
    EXPECT_EQ(silent && key.second != kConnectionState ? 12 : 192, shown.quality) << key.first << " " << key.second;
    if (key.second == kConnectionState) {
      EXPECT_EQ(!silent, shown.value) << key.first;
    }
  }
  EXPECT_EQ(244U + 244U + 152U, run.tags.size());
  EXPECT_THAT(run.log, Contains("COM1 ПРИБОР:13 Нет ответа от устройства"));
  EXPECT_THAT(run.log, Not(Contains(HasSubstr("ПРИБОР:12"))));
  EXPECT_THAT(run.log, Not(Contains(HasSubstr("ПРИБОР:14"))));
  // "COM1 ПРИБОР:13 Нет ответа от устройства" in code page 1251.
  EXPECT_THAT(FileText(bench.File("events.log")),
              HasSubstr("] COM1 \xCF\xD0\xC8\xC1\xCE\xD0:13 \xCD\xE5\xF2 \xEE\xF2\xE2\xE5\xF2\xE0 \xEE\xF2 "
                        "\xF3\xF1\xF2\xF0\xEE\xE9\xF1\xF2\xE2\xE0\r\n"));
}

TEST(LineTrouble, PollingGoesOnWhenTheDeviceGoesAwayAndComesBack) {
  Bench bench;
  bench.StartMeters({"12:1"});
  bench.Configure("poll_period_s = 1\nretries = 1\ntimeout_ms = 1000",
                  MeterTable("feeder", 12, 1, "fail_hold_s = 0\ntags = [\"Frequency\", \"ConnectionState\"]"));
  const auto host = bench.StartHost({"run", "--json"});
  const auto shows = [&](int quality, bool connected) {
    return host->WaitUntil([&](const std::string& output) {
      const HostRun run = Bench::Read(0, output.substr(0, output.rfind('\n') + 1), {});
      const auto frequency = run.tags.find({"feeder", 20075});
      const auto state = run.tags.find({"feeder", kConnectionState});
      return frequency != run.tags.end() && frequency->second.quality == quality && state != run.tags.end() &&
             state->second.value == connected;
    });
  };
  ASSERT_TRUE(shows(192, true));
  bench.StopMeters();
  ASSERT_TRUE(shows(12, false)) << host->Output() << host->Errors();
  ASSERT_TRUE(host->WaitFor("Ошибка открытия COM-порта")) << host->Output();
  bench.StartMeters({"12:1"});
  ASSERT_TRUE(shows(192, true)) << host->Output();
  EXPECT_THAT(host->Output(), HasSubstr("Восстановление связи"));
  host->Signal(SIGINT);
  EXPECT_EQ(0, host->Wait(20)) << host->Errors();
}

TEST(LineTrouble, APortThatIsNotThereIsSaidOnceAnAttempt) {
  Bench bench;
  bench.Configure("retries = 2\ntimeout_ms = 100", MeterTable("feeder", 12, 1));
  const HostRun run = bench.Run({"check"});
  EXPECT_EQ(4, run.exitCode);
  EXPECT_THAT(run.errors, HasSubstr("COM1"));
}

TEST(LineTrouble, TracesEachFrame) {
  Bench bench;
  bench.StartMeters({"12:1"});
  bench.Configure("", MeterTable("feeder", 12, 1, "tags = [\"Device Address\"]"),
                  "trace = { file = \"" + bench.File("trace.log") + "\", settings = \"DBG_COMMON=1 FS=16\" }");
  EXPECT_EQ(0, bench.Run({"run", "--passes", "1"}).exitCode);
  const std::string trace = FileText(bench.File("trace.log"));
  EXPECT_THAT(trace, HasSubstr("] Write<10> 0C 01 30 30 30 30 30 30 0E 71\r\n"));
  EXPECT_THAT(trace, HasSubstr("] Write<5> 0C 08 05 76 00\r\n"));
  EXPECT_THAT(trace, HasSubstr("] Read<5> 0C 00 0C B1 C6\r\n"));
  EXPECT_THAT(trace, Not(HasSubstr("TransmitAndRecieve")));
}

TEST(LineTrouble, AMeterSwitchedOffIsUncertainAndNotAsked) {
  Bench bench;
  bench.StartMeters({"12:1"});
  bench.Configure("", MeterTable("feeder", 12, 1, "exchange = false\ntags = [\"Frequency\", \"Exchange\"]"));
  const HostRun run = bench.Run({"run", "--passes", "1", "--json"});
  EXPECT_EQ(64, run.tags.at({"feeder", 20075}).quality);
  EXPECT_EQ(192, run.tags.at({"feeder", kExchange}).quality);
  EXPECT_EQ(false, run.tags.at({"feeder", kExchange}).value);
}

}  // namespace
}  // namespace ostrel::test
