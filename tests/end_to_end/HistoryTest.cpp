// History from the simulated meters' archives and profiles through a pseudo-terminal and the plug-in to ostrel-host's output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cmath>

#include "host/session/HistoryInterval.h"
#include "tests/end_to_end/Programs.h"
#include "tests/expectation/HistoryExpectation.h"
#include "tests/support/SimulatedLine.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kClock = "at=2026-11-20T10:40:00";
constexpr std::uint32_t kProfileTag = 40108;

/// A line with one meter that stands still, and a host for it.
void StartMeter(Bench& bench, std::uint32_t type, const std::string& more) {
  bench.StartMeters({MeterText(1, type, more)});
  bench.Configure("timeout_ms = 200", MeterTable("m", 1, type));
}

std::vector<std::string> HistoryOf(std::vector<std::string> tags, const std::string& from, const std::string& to) {
  tags.insert(tags.begin(), {"history", "--meter", "m", "--json", "--from", from, "--to", to});
  return tags;
}

/// Times and values of a profile within an interval, worked out from the model alone. A time is made of what the clock showed
/// when the record's hour began; of an hour that was shown twice the first is the one that is found.
std::map<std::string, double> RecordsOfModel(const sim::MeterView& view, std::uint32_t tag, const std::string& from,
                                             const std::string& to) {
  const sim::MeterTime begin = *sim::ParseMeterTime(from);
  const sim::MeterTime end = std::max(*sim::ParseMeterTime(to), begin + 1);
  std::map<std::string, double> records;
  for (const sim::MeterTime time : sim::ExpectedProfileTimes(view, tag, {begin - sim::kDay, end + sim::kDay})) {
    const sim::MeterTime hour = (time - 1) / sim::kHour * sim::kHour;
    const sim::MeterTime shown = view.wall.Shown(hour) + time - hour;
    if (shown < begin || shown >= end) continue;
    records.try_emplace(host::WallTimeText(shown), sim::ExpectedProfile(view, tag, time)->value);
  }
  return records;
}

/// What a float makes of two summands.
void ExpectNear(double expected, const nlohmann::json& event) {
  EXPECT_NEAR(expected, event["value"].get<double>(), std::fabs(expected) * 2.4e-7 + 1e-9) << event;
}

/// The sums of every archive and two hours of each profile. Every tag and record is compared on the virtual clock, where the
/// plug-in's pauses cost nothing.
TEST(HistoryCommand, ShowsTheMetersModel) {
  for (const std::uint32_t type : {8U, 12U}) {
    Bench bench;
    StartMeter(bench, type, kClock);
    sim::Meter meter(Spec(MeterText(1, type, kClock)), 1);
    const sim::MeterView view = meter.View(0);
    std::map<std::uint32_t, int> right;
    const auto compare = [&](const HostRun& run, const auto& expectation) {
      EXPECT_EQ(0, run.exitCode) << run.errors;
      for (const auto& event : run.events) {
        if (event["event"] != "history" || !event["value"].is_number()) continue;
        const std::optional<double> expected = expectation(event["id"], *sim::ParseMeterTime(event["time"].get<std::string>()));
        ASSERT_TRUE(expected) << event << ": the meter has no such record";
        ExpectNear(*expected, event);
        ++right[event["id"]];
      }
    };
    compare(bench.Run(HistoryOf({"*Profile*"}, "2026-11-20T08:00", "2026-11-20T10:00")),
            [&](std::uint32_t id, sim::MeterTime time) -> std::optional<double> {
              const auto power = sim::ExpectedProfile(view, id, view.wall.TimeOf(time));
              return power ? std::optional(power->value) : std::nullopt;
            });
    compare(bench.Run(HistoryOf({"*Tariff Sum"}, "2026-11-20", "2026-11-21")),
            [&](std::uint32_t id, sim::MeterTime time) { return sim::ExpectedArchive(view, id, time); });
    EXPECT_EQ(4, right[kProfileTag]) << "half-hours";
    EXPECT_EQ(1, right[40008]);
    EXPECT_LE(4U, right.size());
  }
}

// The same records as the meter's model has, whatever lies between; all intervals side by side, since most of the time is waited.
TEST(HistoryCommand, GivesEveryRecordOfAnInterval) {
  const std::vector<TableRow> rows = ReadTable("end_to_end/history_intervals.tsv", 6);
  std::vector<Bench> benches(rows.size());
  std::vector<std::unique_ptr<Background>> hosts;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    StartMeter(benches[i], Numbers(rows[i][1])[0], rows[i][2]);
    hosts.push_back(benches[i].StartHost(HistoryOf({std::to_string(kProfileTag)}, rows[i][3], rows[i][4])));
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i][0]);
    EXPECT_EQ(0, hosts[i]->Wait(120)) << hosts[i]->Errors();
    sim::Meter meter(Spec(MeterText(1, Numbers(rows[i][1])[0], rows[i][2])), 1);
    const auto expected = RecordsOfModel(meter.View(0), kProfileTag, rows[i][3], rows[i][4]);
    EXPECT_EQ(std::stoul(rows[i][5]), expected.size());
    const HostRun run = Bench::Read(0, hosts[i]->Output(), {});
    ASSERT_EQ(expected.size(), run.events.size()) << "once each";
    auto event = run.events.begin();
    for (const auto& [time, value] : expected) {
      ASSERT_EQ(time, (*event)["time"]);
      ExpectNear(value, *event++);
    }
  }
}

// The hours 05 and 06 had no power at all, so they have no records; of 04 and 07 the parts without power are not whole, and the
// last record still runs.
TEST(HistoryCommand, LeavesOutWhatIsNotThere) {
  Bench bench;
  StartMeter(bench, 1, "at=2026-11-20T10:40:00:period=30:powercut=2026-11-20T04:10:00/2026-11-20T07:20:00:searchpolls=3");
  std::string records;
  for (const auto& event : bench.Run(HistoryOf({"40108"}, "2026-11-20T03:30", "2026-11-20T12:00")).events) {
    EXPECT_TRUE(event["value"].is_number()) << event;
    const int quality = event["quality"];
    records += event["time"].get<std::string>().substr(11, 5) + (quality == 0x000400C0   ? " "
                                                                 : quality == 0x00040000 ? "- "
                                                                                         : "? ");
  }
  EXPECT_EQ("03:30 04:00 04:30- 05:00- 07:30- 08:00 08:30 09:00 09:30 10:00 10:30 11:00- ", records);
}

TEST(HistoryCommand, TakesIntervalsAsTheyAre) {
  Bench bench;
  StartMeter(bench, 1, kClock);
  const struct {
    const char* from;
    const char* to;
    std::size_t days;
  } rows[] = {{"2026-11-19", "2026-11-19", 1}, {"2026-11-19T01:00", "2026-11-19T01:00", 0}, {"2026-11-18", "2026-11-20", 2}};
  for (const auto& row : rows) EXPECT_EQ(row.days, bench.Run(HistoryOf({"40008"}, row.from, row.to)).events.size()) << row.to;
  EXPECT_EQ(2, bench.Run(HistoryOf({"40008"}, "2026-11-20", "2026-11-19")).exitCode);
  EXPECT_EQ(2, bench.Run(HistoryOf({"40008"}, "2026-11-31", "2026-12-01")).exitCode);
  EXPECT_EQ(2, bench.Run(HistoryOf({"Nothing"}, "2026-11-18", "2026-11-20")).exitCode);
}

TEST(HistoryCommand, KeepsWhatCameBeforeTheMeterFellSilent) {
  Bench bench;
  std::string faults;
  for (const char* every : {"60", "61", "62", "63"})
    faults += std::string("[[fault]]\nkind = \"silence\"\nevery = ") + every + "\n";
  bench.StartMeters({MeterText(1, 1, kClock)}, faults);
  bench.Configure("timeout_ms = 100\nretries = 2", MeterTable("m", 1, 1));
  const HostRun run = bench.Run(HistoryOf({"40108"}, "2026-11-18T00:30", "2026-11-20T00:30"));
  EXPECT_EQ(3, run.exitCode);
  EXPECT_THAT(run.errors, HasSubstr("the meter did not answer"));
  EXPECT_LT(5U, run.events.size());
  EXPECT_GT(90U, run.events.size());
}

TEST(HistoryCommand, ShowsTablesCsvAndCharts) {
  Bench bench;
  StartMeter(bench, 1, "at=2026-11-20T10:40:00:period=60:powercut=2026-11-20T05:00:00/2026-11-20T06:00:00");
  const auto shown = [&](const std::string& format) {
    const auto host = bench.StartHost(
        {"history", "--meter", "m", "40108", "--from", "2026-11-20T05:00", "--to", "2026-11-20T08:00", "--format", format});
    EXPECT_EQ(0, host->Wait(60)) << host->Errors();
    return host->Output();
  };
  EXPECT_THAT(shown("table"), StartsWith("m  P+ Profile Power  [kW]\n  2026-11-20T05:00:00  "));
  EXPECT_THAT(shown("csv"),
              StartsWith("meter,id,tag,time,value,unit,quality,repeated_hour\r\nm,40108,P+ Profile Power,2026-11-20T05:00:00,"));
  EXPECT_THAT(shown("chart"), testing::AllOf(HasSubstr(" : 1 missing\n"), HasSubstr("  11-20 07:00 ")));
}

TEST(HistoryCommand, ExportsEveryTagAsAFile) {
  Bench bench;
  StartMeter(bench, 2, kClock);
  const auto exported = [&](const std::string& folder) {
    return bench.Run({"history", "--meter", "m", "--all-tags", "--csv", folder, "--from", "2026-11-01", "--to", "2026-11-21"})
        .exitCode;
  };
  const std::string folder = bench.File("out");
  EXPECT_EQ(0, exported(folder));
  EXPECT_THAT(FileText(folder + "/40008_A+_Day_Tariff_Sum.csv"), HasSubstr("m,40008,A+ Day Tariff Sum,2026-11-20T00:00:00,"));
  EXPECT_FALSE(FileText(folder + "/40108_P+_Profile_Power.csv").empty());
  EXPECT_EQ(5, exported("/proc")) << "no files there";
  EXPECT_EQ(5, exported(bench.File("host.toml"))) << "no folder";
}

TEST(HistoryCommand, EndsCleanlyWhenInterrupted) {
  Bench bench;
  StartMeter(bench, 1, kClock);
  const auto host = bench.StartHost(HistoryOf({"40108"}, "2026-09-01", "2026-11-20"));
  ASSERT_TRUE(host->WaitFor("\"history\""));
  host->Signal(SIGINT);
  EXPECT_EQ(130, host->Wait(30));
  EXPECT_THAT(host->Errors(), HasSubstr("ended before all was read"));
}

}  // namespace
}  // namespace ostrel::test
