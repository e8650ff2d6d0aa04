// Intervals of a load profile through ostrel-host: the same records as the meter's model has, whatever lies between.
#include <gtest/gtest.h>

#include "host/session/HistoryInterval.h"
#include "simulator/HistoryExpectation.h"
#include "tests/end_to_end/HistoryRun.h"

namespace ostrel::test {
namespace {

/// Times and values of the tag within an interval, worked out from the model alone. A time is made of what the clock showed when
/// the record's hour began; of an hour that was shown twice the first is the one that is found.
Series RecordsOfModel(const std::string& text, std::uint32_t tag, const std::string& from, const std::string& to) {
  sim::Meter meter = ModelOf(text);
  const sim::MeterView view = meter.View(0);
  const sim::MeterTime begin = *sim::ParseMeterTime(from);
  const sim::MeterTime end = *sim::ParseMeterTime(to);
  Series records;
  for (const sim::MeterTime time : sim::ExpectedProfileTimes(view, tag, {begin - sim::kDay, end + sim::kDay})) {
    const sim::MeterTime hour = (time - 1) / sim::kHour * sim::kHour;
    const sim::MeterTime shown = view.wall.Shown(hour) + time - hour;
    if (shown < begin || shown >= end) continue;
    records.try_emplace(host::WallTimeText(shown), sim::ExpectedProfile(view, tag, time)->value);
  }
  return records;
}

TEST(HistoryInterval, IsEveryRecordInItWhateverLiesBetween) {
  const struct {
    const char* what;
    const char* keys;
    const char* from;
    const char* to;
    std::size_t count;
  } rows[] = {
      {"a start between two records", "at=2026-01-20T10:00:00:period=15", "2026-01-13T10:07:00", "2026-01-14T10:07:00", 96},
      {"an end between two records", "at=2026-01-20T10:00:00:period=30", "2026-01-13T09:59:59", "2026-01-13T11:36:00", 4},
      {"one record", "at=2026-01-20T10:00:00:period=30", "2026-01-13T11:30:00", "2026-01-13T11:30:00", 1},
      {"a cut over midnight", "at=2026-01-20T10:00:00:period=3:powercut=2026-01-13T22:10:00/2026-01-14T01:20:00",
       "2026-01-13T12:00:00", "2026-01-14T12:00:00", 20 * 22},
      {"the first hour of a life", "at=2026-01-20T10:00:00:installed=2026-01-13T13:00:00:period=3", "2026-01-13T00:00:00",
       "2026-01-13T16:01:00", 60},
      {"a memory that begins in mid-day", "at=2026-01-20T10:00:00:recording=2026-01-13T13:20:00", "2026-01-12T12:30:00",
       "2026-01-14T00:30:00", 22},
      {"the change to summer time", "at=2026-03-31T10:00:00:dst=1", "2026-03-28T02:30:00", "2026-03-30T02:30:00", 94},
      {"the change to winter time", "at=2026-10-27T10:00:00:dst=1", "2026-10-24T02:30:00", "2026-10-26T02:30:00", 96},
      {"wider than the memory, with months of darkness",
       "at=2026-11-20T10:40:00:period=3:searchpolls=0:powercut=2026-09-01T00:00:00/2026-11-19T12:00:00", "2024-06-01T00:00:00",
       "2027-01-01T00:00:00", 390 * 20 - 6},
      {"blank records: within an hour, its first and last, behind a cut, a whole hour",
       "at=2026-01-20T10:00:00:period=15:powercut=2026-01-14T09:00:00/2026-01-14T11:00:00:emptyrecord=2026-01-14T03:20:00"
       ":emptyrecord=2026-01-14T05:00:00:emptyrecord=2026-01-14T05:59:00:emptyrecord=2026-01-14T11:00:00"
       ":emptyrecord=2026-01-14T13:00:00:emptyrecord=2026-01-14T13:15:00:emptyrecord=2026-01-14T13:30:00"
       ":emptyrecord=2026-01-14T13:45:00",
       "2026-01-14T00:00:00", "2026-01-15T00:00:00", 96 - 8 - 8},
  };
  for (const auto& row : rows) {
    Bench bench;
    StartMeter(bench, 1, row.keys);
    const std::string to = row.from == std::string(row.to) ? std::string(row.to).replace(17, 2, "01") : row.to;
    const Series expected = RecordsOfModel(MeterText(1, 1, row.keys), 40108, row.from, to);
    EXPECT_EQ(row.count, expected.size()) << row.what;
    const HostRun run = bench.Run({"history", "--meter", "m", "--json", "40108", "--from", row.from, "--to", row.to});
    const History history = ParseHistory(run);
    EXPECT_EQ(0, history.exitCode) << row.what << history.errors;
    EXPECT_EQ(expected.size(), run.events.size()) << row.what << ": once each";
    std::string before;
    for (const auto& event : run.events) EXPECT_LT(std::exchange(before, event["time"]), event["time"]) << row.what;
    for (const auto& [time, value] : expected) {
      ASSERT_EQ(1U, history.tags.at(40108).count(time)) << row.what << " " << time;
      ExpectNear(value, history.tags.at(40108).at(time), 2, std::string(row.what) + " " + time);
    }
  }
}

}  // namespace
}  // namespace ostrel::test
