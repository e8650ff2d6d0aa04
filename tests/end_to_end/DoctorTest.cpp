// Each thing that goes wrong on site, and the one cause that the doctor finds for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/end_to_end/Programs.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;

struct Ward {
  const char* finding;
  const char* says;
  const char* meter = "12:1";
  const char* faults = "";
  const char* channelKeys = "";
  const char* meterKeys = "";
  std::uint32_t type = 1;
  int exitCode = 3;
};

const Ward kWards[] = {
    {.finding = "good", .says = "50 asks", .meter = "12:1:serial=4711:offset_s=90", .exitCode = 0},
    {.finding = "chatter", .says = "another master", .faults = "[[fault]]\nkind=\"chatter\"\nms=300\nbytes=3\n"},
    {.finding = "silence", .says = "--scan-addresses", .meter = "12:1:silent=1"},
    {.finding = "garbage", .says = "--scan-speeds", .faults = "[[fault]]\nkind=\"wrong-speed\"\n"},
    {.finding = "echo", .says = "echo = true", .faults = "[[fault]]\nkind=\"echo\"\n"},
    {.finding = "good", .says = "none lost", .faults = "[[fault]]\nkind=\"echo\"\n", .channelKeys = "echo = true", .exitCode = 0},
    {.finding = "no-echo", .says = "echo = false", .channelKeys = "echo = true"},
    {.finding = "late", .says = "set timeout_ms = ", .faults = "[[fault]]\nkind=\"late\"\nms=600\n"},
    {.finding = "bursts", .says = "latency timer", .faults = "[[fault]]\nkind=\"pieces\"\nms=16\nbytes=4\n", .exitCode = 0},
    {.finding = "foreign", .says = "another address answered (13)", .faults = "[[fault]]\nkind=\"foreign\"\n"},
    {.finding = "glued", .says = "two meters have this address", .faults = "[[fault]]\nkind=\"doubled\"\n"},
    {.finding = "level1-refused", .says = "level1_password", .meterKeys = "level1_password = \"111111\""},
    {.finding = "level2-refused",
     .says = "four minutes",
     .meter = "12:1:password2=222222",
     .meterKeys = "level2_password = \"333333\"",
     .exitCode = 0},
    {.finding = "wrong-type", .says = "set type = 8", .meter = "12:8"},
};

TEST(Doctor, FindsTheOneCause) {
  std::vector<std::unique_ptr<Bench>> benches;
  std::vector<std::unique_ptr<Background>> hosts;
  // Side by side: most of the time they listen.
  for (const Ward& ward : kWards) {
    Bench& bench = *benches.emplace_back(std::make_unique<Bench>());
    bench.StartMeters({ward.meter}, ward.faults);
    bench.Configure(ward.channelKeys, MeterTable("feeder", 12, ward.type, ward.meterKeys));
    hosts.push_back(bench.StartHost({"doctor", "--json"}));
  }
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    SCOPED_TRACE(std::string(kWards[i].finding) + " " + kWards[i].says);
    EXPECT_EQ(kWards[i].exitCode, hosts[i]->Wait(60)) << hosts[i]->Errors();
    const HostRun run = Bench::Read(0, hosts[i]->Output(), {});
    ASSERT_EQ(kWards[i].exitCode == 0 ? 1U : 2U, run.events.size()) << hosts[i]->Output();
    EXPECT_EQ(kWards[i].finding, run.events[0]["finding"]);
    EXPECT_THAT(run.events[0]["text"].get<std::string>(), HasSubstr(kWards[i].says));
  }
  const auto good = nlohmann::json::parse(hosts[0]->Output());
  EXPECT_EQ("00004711", good["serial"]);
  EXPECT_NEAR(90, good["clock_offset_s"].get<int>(), 2);
}

TEST(Doctor, TellsPortsApart) {
  const struct {
    const char* device;
    const char* finding;
  } rows[] = {{"/dev/ttyNOSUCH", "port-missing"}, {"/etc/hostname", "port-no-line"}, {"tcp:127.0.0.1:1", "port-failed"}};
  Bench bench;
  for (const auto& row : rows) {
    const HostRun run = bench.RunPlain({"doctor", "--json", "--device", row.device});
    EXPECT_EQ(4, run.exitCode);
    ASSERT_EQ(2U, run.events.size()) << run.errors;
    EXPECT_EQ(row.finding, run.events[0]["finding"]);
  }
  bench.StartMeters({"12:1"});
  bench.Configure("", MeterTable("feeder", 12, 1));
  const auto holder = bench.StartHost({"run", "--json"});
  ASSERT_TRUE(holder->WaitFor("\"pass\""));
  const HostRun busy = bench.RunPlain({"doctor", "--json", "--device", bench.File("line")});
  EXPECT_EQ("port-busy", busy.events.at(0)["finding"]);
}

TEST(Doctor, SearchesAddressesAndSpeeds) {
  Bench bench;
  Background meters("ostrel-meter",
                    {"--line", "pty:" + bench.File("line"), "--uart", "--baud", "19200", "--parity", "even", "137:8"},
                    bench.File("meters"));
  ASSERT_TRUE(meters.WaitFor("ready"));
  const HostRun run = bench.RunPlain({"doctor", "--device", bench.File("line"), "--timeout-ms", "15", "--scan-addresses",
                                      "130-139", "--scan-speeds", "--write-config", bench.File("found.toml")});
  EXPECT_EQ(0, run.exitCode) << run.errors;
  const HostRun check =
      bench.RunPlain({"read", "--config", bench.File("found.toml"), "--meter", "meter-137", "--json", "Frequency"});
  EXPECT_EQ(0, check.exitCode) << check.errors << FileText(bench.File("found.toml"));
  EXPECT_THAT(FileText(bench.File("found.toml")), HasSubstr("baud = 19200\nparity = \"even\""));
  EXPECT_THAT(FileText(bench.File("found.toml")), HasSubstr("type = 8"));
}

}  // namespace
}  // namespace ostrel::test
