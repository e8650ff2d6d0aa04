// History from the simulated meters' archives and profiles through a pseudo-terminal and the plug-in to ostrel-host's output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cmath>
#include <numeric>

#include "simulator/HistoryExpectation.h"
#include "tests/end_to_end/HistoryRun.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr int kGood = 0x000400C0;
constexpr int kBad = 0x00040000;

constexpr const char* kClock = "at=2026-11-20T10:40:00";

double Total(const Series& series) {
  return std::accumulate(series.begin(), series.end(), 0.0, [](double sum, const auto& record) { return sum + record.second; });
}

/// How many records of the tag were right.
int CompareTag(const sim::MeterView& view, int id, const Series& series) {
  int right = 0;
  for (const auto& [time, value] : series) {
    const auto stamp = sim::ParseMeterTime(time);
    const auto tagId = static_cast<std::uint32_t>(id);
    std::optional<double> expected;
    if (id >= 40108 && id <= 40119) {
      if (const auto power = sim::ExpectedProfile(view, tagId, view.wall.TimeOf(*stamp))) expected = power->value;
    } else {
      expected = sim::ExpectedArchive(view, tagId, *stamp);
    }
    if (!expected) {
      ADD_FAILURE() << id << " " << time << ": the meter has no such record";
      continue;
    }
    ExpectNear(*expected, value, 2, std::to_string(id) + " " + time);
    ++right;
  }
  return right;
}

/// The sums of every archive and two hours of each profile. Every tag and record is compared on the virtual clock, where the
/// plug-in's pauses cost nothing.
void CompareType(std::uint32_t type) {
  Bench bench;
  StartMeter(bench, type, kClock);
  const History profiles = ReadHistory(bench, {"*Profile*"}, "2026-11-20T08:00", "2026-11-20T10:00");
  const History archives = ReadHistory(bench, {"*Tariff Sum"}, "2026-11-20", "2026-11-21");
  sim::Meter meter = ModelOf(MeterText(1, type, kClock));
  int right = 0;
  for (const auto* history : {&profiles, &archives}) {
    EXPECT_EQ(0, history->exitCode) << history->errors;
    for (const auto& [id, series] : history->tags) right += CompareTag(meter.View(0), id, series);
  }
  EXPECT_LT(4, right);
  EXPECT_EQ(1U, archives.tags.count(40008));
  EXPECT_EQ(1U, profiles.tags.count(40108));
}

class HistoryOfType : public testing::TestWithParam<std::uint32_t> {};
TEST_P(HistoryOfType, IsTheMetersModel) { CompareType(GetParam()); }
INSTANTIATE_TEST_SUITE_P(EachType, HistoryOfType, testing::ValuesIn(kMeterTypes));

// What the host printed, held against itself: energy is energy, whichever archive it comes from. A pulse is 0.2 kWh here, and
// the powers are floats.
constexpr double kHalfPulse = 100.0 * 20 / (2 * 5000) / 2;

TEST(HistoryAgrees, ProfileDayReadingsAndMonths) {
  Bench bench;
  StartMeter(bench, 6, "at=2026-11-20T10:40:00:period=30");
  const History history = ReadHistory(bench, {"40044", "40164"}, "2026-09-01", "2026-12-01");
  const Series& months = history.tags.at(40044);
  const Series& readings = history.tags.at(40164);
  for (const auto& [begin, end] :
       {std::pair("2026-09-01T00:00:00", "2026-10-01T00:00:00"), {"2026-10-01T00:00:00", "2026-11-01T00:00:00"}}) {
    EXPECT_NEAR(months.at(end), readings.at(end) - readings.at(begin), kHalfPulse) << end;
  }
  const History last = ReadHistory(bench, {"40008", "40128", "40108"}, "2026-11-19T00:00", "2026-11-20T00:30");
  const Series& today = last.tags.at(40128);
  const double day = last.tags.at(40008).at("2026-11-20T00:00:00");
  EXPECT_NEAR(day, today.at("2026-11-20T00:00:00") - today.at("2026-11-19T00:00:00"), kHalfPulse);
  Series profile = last.tags.at(40108);
  profile.erase("2026-11-19T00:00:00");  // ends the day before
  EXPECT_EQ(48U, profile.size());
  EXPECT_NEAR(day, Total(profile) / 2, kHalfPulse);

  sim::Meter meter = ModelOf(MeterText(1, 6, kClock));
  const sim::Period twoHours{*sim::ParseMeterTime("2026-11-19T17:00:00"), *sim::ParseMeterTime("2026-11-19T19:00:00")};
  const double halves = profile.at("2026-11-19T17:30:00") + profile.at("2026-11-19T18:00:00") +
                        profile.at("2026-11-19T18:30:00") + profile.at("2026-11-19T19:00:00");
  EXPECT_NEAR(sim::ExpectedEnergy(meter.View(0), 0, 0, twoHours), halves / 2, kHalfPulse);
}

TEST(HistoryAgrees, ThirtyDaysAreTheirMonth) {
  Bench bench;
  StartMeter(bench, 8, "at=2026-12-01T00:30:00");
  const History history = ReadHistory(bench, {"40008", "40044"}, "2026-11-02", "2026-12-02");
  EXPECT_EQ(30U, history.tags.at(40008).size());
  EXPECT_NEAR(history.tags.at(40044).at("2026-12-01T00:00:00"), Total(history.tags.at(40008)), kHalfPulse);
}

TEST(HistoryWalk, LeavesOutWhatIsNotThere) {
  Bench bench;
  StartMeter(bench, 1, "at=2026-11-20T10:40:00:period=30:powercut=2026-11-20T04:10:00/2026-11-20T07:20:00:searchpolls=3");
  const History history = ReadHistory(bench, {"40108"}, "2026-11-20T03:30", "2026-11-20T12:00");
  std::vector<std::string> times;
  for (const auto& [time, value] : history.tags.at(40108)) times.push_back(time.substr(11, 5));
  // The hours 05 and 06 had no power at all, so they have no records; of 04 and 07 the parts without power are not whole.
  EXPECT_THAT(times, ElementsAre("03:30", "04:00", "04:30", "05:00", "07:30", "08:00", "08:30", "09:00", "09:30", "10:00",
                                 "10:30", "11:00"));
  const auto quality = [&](const char* time) { return history.qualities.at({40108, std::string("2026-11-20T") + time + ":00"}); };
  EXPECT_EQ(kGood, quality("04:00"));
  EXPECT_EQ(kBad, quality("05:00"));
  EXPECT_EQ(kGood, quality("08:00"));
  EXPECT_EQ(kBad, quality("11:00")) << "still running";
}

TEST(HistoryWalk, CrossesTheRingsWrapAndEndsAtItsOldestHour) {
  Bench bench;
  StartMeter(bench, 1, "at=2026-11-20T10:40:00:period=60");
  // 4096 blocks of two units: the newest is that of 10:00, so the oldest hour began 4095 hours before.
  const History history = ReadHistory(bench, {"40108"}, "2026-06-02T00:00", "2026-06-03T00:00");
  EXPECT_EQ(0, history.exitCode) << history.errors;
  EXPECT_EQ("2026-06-02T20:00:00", history.tags.at(40108).begin()->first);
  sim::Meter meter = ModelOf(MeterText(1, 1, "at=2026-11-20T10:40:00:period=60"));
  EXPECT_EQ(4, CompareTag(meter.View(0), 40108, history.tags.at(40108)));
}

TEST(HistoryWalk, CrossesBothChangesOfTheClock) {
  const struct {
    const char* now;
    const char* from;
    const char* to;
    std::vector<std::string> times;
  } rows[] = {
      {"2026-03-30T10:00:00", "2026-03-29T01:00", "2026-03-29T04:30", {"01:00", "01:30", "02:00", "03:30", "04:00"}},
      {"2026-10-26T10:00:00", "2026-10-25T01:30", "2026-10-25T03:30", {"01:30", "02:00", "02:30", "03:00"}},
  };
  for (const auto& row : rows) {
    Bench bench;
    StartMeter(bench, 1, std::string("at=") + row.now + ":period=30:dst=1");
    std::vector<std::string> times;
    const History history = ReadHistory(bench, {"40108"}, row.from, row.to);
    for (const auto& [time, value] : history.tags.at(40108)) times.push_back(time.substr(11, 5));
    EXPECT_EQ(row.times, times) << row.now;
  }
}

TEST(HistoryCommand, TakesIntervalsAsTheyAre) {
  Bench bench;
  StartMeter(bench, 1, kClock);
  const auto days = [&](const char* from, const char* to) { return ReadHistory(bench, {"40008"}, from, to).tags[40008].size(); };
  EXPECT_EQ(1U, days("2026-11-19", "2026-11-19"));
  EXPECT_EQ(0U, days("2026-11-19T01:00", "2026-11-19T01:00"));
  EXPECT_EQ(2U, days("2026-11-18", "2026-11-20")) << "the end is not in it";
  EXPECT_EQ(2, bench.Run({"history", "--meter", "m", "40008", "--from", "2026-11-20", "--to", "2026-11-19"}).exitCode);
  EXPECT_EQ(2, bench.Run({"history", "--meter", "m", "40008", "--from", "2026-11-31"}).exitCode);
  EXPECT_EQ(2, bench.Run({"history", "--meter", "m", "Nothing"}).exitCode);
}

TEST(HistoryCommand, KeepsWhatCameBeforeTheMeterFellSilent) {
  Bench bench;
  bench.StartMeters({MeterText(1, 1, kClock)},
                    "[[fault]]\nkind = \"silence\"\nevery = 60\n[[fault]]\nkind = \"silence\"\nevery = 61\n"
                    "[[fault]]\nkind = \"silence\"\nevery = 62\n[[fault]]\nkind = \"silence\"\nevery = 63\n");
  bench.Configure("timeout_ms = 100\nretries = 2", MeterTable("m", 1, 1));
  const History history = ReadHistory(bench, {"40108"}, "2026-11-18T00:30", "2026-11-20T00:30");
  EXPECT_EQ(3, history.exitCode);
  EXPECT_THAT(history.errors, HasSubstr("the meter did not answer"));
  EXPECT_LT(5U, history.tags.at(40108).size());
  EXPECT_GT(90U, history.tags.at(40108).size());
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
  EXPECT_THAT(shown("csv"), StartsWith("meter,id,tag,time,value,unit,quality\r\nm,40108,P+ Profile Power,2026-11-20T05:00:00,"));
  const std::string chart = shown("chart");
  EXPECT_THAT(chart, HasSubstr(" : 1 missing\n"));
  EXPECT_THAT(chart, HasSubstr("  11-20 07:00 "));
}

TEST(HistoryCommand, ExportsEveryTagAsAFile) {
  Bench bench;
  StartMeter(bench, 2, kClock);
  EXPECT_EQ(0, bench
                   .Run({"history", "--meter", "m", "--all-tags", "--csv", bench.File("out"), "--from", "2026-11-01", "--to",
                         "2026-11-21"})
                   .exitCode);
  EXPECT_THAT(FileText(bench.File("out") + "/40008_A+_Day_Tariff_Sum.csv"),
              HasSubstr("m,40008,A+ Day Tariff Sum,2026-11-20T00:00:00,"));
  EXPECT_FALSE(FileText(bench.File("out") + "/40108_P+_Profile_Power.csv").empty());
}

TEST(HistoryCommand, EndsCleanlyWhenInterrupted) {
  Bench bench;
  StartMeter(bench, 1, kClock);
  const auto host = bench.StartHost({"history", "--meter", "m", "40108", "--json", "--from", "2026-09-01", "--to", "2026-11-20"});
  ASSERT_TRUE(host->WaitFor("\"history\""));
  host->Signal(SIGINT);
  EXPECT_EQ(130, host->Wait(30));
  EXPECT_THAT(host->Errors(), HasSubstr("ended before all was read"));
}

}  // namespace
}  // namespace ostrel::test
