// Each thing that goes wrong on site, and the one cause that the doctor finds for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/end_to_end/Programs.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;

// Side by side: most of the time they listen.
TEST(Doctor, FindsTheOneCause) {
  const std::vector<TableRow> wards = ReadTable("end_to_end/doctor.tsv", 8);
  std::vector<Bench> benches(wards.size());
  std::vector<std::unique_ptr<Background>> hosts;
  for (std::size_t i = 0; i < wards.size(); ++i) {
    const TableRow& ward = wards[i];
    benches[i].StartMeters({ward[6]}, ward[7].empty() ? "" : "[[fault]]\n" + WithLineEnds(ward[7]));
    benches[i].Configure(ward[4], MeterTable("feeder", 12, static_cast<std::uint32_t>(std::stoul(ward[3])), ward[5]));
    hosts.push_back(benches[i].StartHost({"doctor", "--json"}));
  }
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    SCOPED_TRACE(wards[i][0] + " " + wards[i][1]);
    EXPECT_EQ(std::stoi(wards[i][2]), hosts[i]->Wait(60)) << hosts[i]->Errors();
    const HostRun run = Bench::Read(0, hosts[i]->Output(), {});
    ASSERT_EQ(wards[i][2] == "0" ? 1U : 2U, run.events.size()) << hosts[i]->Output();
    EXPECT_EQ(wards[i][0], run.events[0]["finding"]);
    EXPECT_THAT(run.events[0]["text"].get<std::string>(), HasSubstr(wards[i][1]));
  }
  const auto good = nlohmann::json::parse(hosts[0]->Output());
  EXPECT_EQ("00004711", good["serial"]);
  EXPECT_NEAR(90, good["clock_offset_s"].get<int>(), 2);
}

TEST(Doctor, TellsPortsApart) {
  Bench bench;
  const auto finding = [&](const std::string& device) {
    const HostRun run = bench.RunPlain({"doctor", "--json", "--device", device});
    EXPECT_EQ(4, run.exitCode);
    return run.events.size() == 2 ? run.events[0]["finding"].get<std::string>() : run.errors;
  };
  EXPECT_EQ("port-missing", finding("/dev/ttyNOSUCH"));
  EXPECT_EQ("port-no-line", finding("/etc/hostname"));
  EXPECT_EQ("port-failed", finding("tcp:127.0.0.1:1"));
  bench.StartMeters({"12:1"});
  bench.Configure("", MeterTable("feeder", 12, 1));
  const auto holder = bench.StartHost({"run", "--json"});
  ASSERT_TRUE(holder->WaitFor("\"pass\""));
  EXPECT_EQ("port-busy", finding(bench.File("line")));
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
