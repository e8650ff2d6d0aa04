// Every history tag of every meter type against the model of a simulated meter, record by record, on the virtual clock.
#include <gtest/gtest.h>

#include <cmath>

#include "Protocol/model/TagCatalogue.h"
#include "tests/expectation/HistoryExpectation.h"
#include "tests/history/HistoryChannel.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

/// The tariff that a tag's place in its class tells, 0 for the sum.
std::uint8_t TariffOf(std::uint32_t tag) {
  const std::uint32_t place = (tag < kMain ? tag - kFirstHdaId : tag - kFirstReading) % 9;
  return static_cast<std::uint8_t>(place == 8 || IsProfile(tag) ? 0 : place + 1);
}

sim::MeterTime MeterTimeOf(std::string time) {
  time[10] = 'T';
  return sim::ParseMeterTime(time).value();
}

struct OldMeter : HistoryChannel {
  OldMeter(std::uint32_t meterType, const std::string& more)
      : HistoryChannel(meterType, ":installed=2024-01-01T00:00:00:at=2026-11-20T10:40:00" + more) {
    Entry().InfoRead = 0;
  }

  /// Of a record that is whole.
  std::optional<double> Expected(std::uint32_t tag, sim::MeterTime stamp) {
    const sim::MeterView view = Line().Meter(1).View(0);
    if (!IsProfile(tag)) return sim::ExpectedArchive(view, tag, stamp);
    const auto power = sim::ExpectedProfile(view, tag, view.wall.TimeOf(stamp));
    return power && power->whole ? std::optional(power->value) : std::nullopt;
  }

  /// Records of the tag that the meter keeps and that show what its model says.
  int Compare(std::uint32_t tag) {
    const bool profile = IsProfile(tag);
    int right = 0;
    for (const std::string& time :
         List(tag, profile ? "2026-11-19 10:00" : "2020-01-01", profile ? "2026-11-20 10:30" : "2030-01-01").times) {
      const auto expected = Expected(tag, MeterTimeOf(time));
      if (!expected) continue;
      const HistoryValue value = Read(tag, time, TariffOf(tag)).value;
      const double shown = tag < kFirstReading ? double{value.Value.fltVal} : value.Value.dblVal;
      EXPECT_EQ(kGood, value.Quality) << tag << " " << time;
      EXPECT_NEAR(*expected, shown, std::fabs(*expected) * 2e-7 + 1e-9) << tag << " " << time;
      ++right;
    }
    return right;
  }
};

TEST(SimulatedHistory, EveryTagOfEveryTypeShowsTheModel) {
  const TimeZone zone("UTC");
  for (const std::uint32_t type : {0U, 1U, 2U, 3U, 6U, 7U, 8U, 11U, 12U}) {
    SCOPED_TRACE("type " + std::to_string(type));
    OldMeter meter(type, type == 2 || type == 12 ? "" : ":ku=100:ki=20");
    for (std::uint32_t tag = kFirstHdaId; tag <= kLastHdaId; ++tag) {
      // What is browsed, listed and kept follows three tables that do not agree everywhere.
      if (!SupportsHdaTag(type, tag) || meter.Protocol().GetHistoryDepth(type, tag) == 0) continue;
      EXPECT_LE(1, meter.Compare(tag)) << tag;
    }
  }
}

TEST(SimulatedHistory, AWholeRingIsListedAndThenServedFromTheStore) {
  OldMeter meter(1, ":period=60");
  const std::size_t listed = meter.List(kMain, "2020-01-01 00:00", "2026-11-20 10:30").count;
  EXPECT_LE(4094U, listed);
  meter.Line().ClearRecords();
  EXPECT_EQ(listed, meter.List(kMain, "2026-06-02 20:00", "2026-11-20 10:30").count);
  EXPECT_EQ(3U, meter.Line().RequestCount()) << "clock, period and coefficients; no search and no record";
}

}  // namespace
}  // namespace ostrel::test
