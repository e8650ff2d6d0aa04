// Every history tag of every meter type against the model of a simulated meter, record by record, on the virtual clock.
#include <gtest/gtest.h>

#include <cmath>

#include "Protocol/model/TagCatalogue.h"
#include "simulator/HistoryExpectation.h"
#include "tests/history/HistoryMeter.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

constexpr std::uint32_t kFirstProfile = kMain;
constexpr std::uint32_t kFirstCumulative = 40120;
constexpr std::uint32_t kLastHistory = 40227;

bool IsProfile(std::uint32_t tag) { return tag >= kFirstProfile && tag < kFirstCumulative; }

/// The tariff that a tag's place in its class tells, 0 for the sum.
std::uint8_t TariffOf(std::uint32_t tag) {
  const std::uint32_t place = (tag < kFirstProfile ? tag - kFirstHdaId : tag - kFirstCumulative) % 9;
  return static_cast<std::uint8_t>(place == 8 ? 0 : place + 1);
}

sim::MeterTime MeterTimeOf(const FILETIME& time) {
  SYSTEMTIME fields{};
  EXPECT_TRUE(platform::FileTimeToFields(time, fields));
  return sim::FromCivil({fields.wYear, fields.wMonth, fields.wDay, fields.wHour, fields.wMinute, fields.wSecond});
}

class Simulated {
 public:
  Simulated(std::uint32_t type, const std::string& more) : type_(type), meter_(Parsed(type, more), 1) {
    channel_.Line().KeepRecords(false);
    channel_.Line().OnRequest([this](auto request) { return meter_.Answer(request, platform::UtcMilliseconds()); });
    channel_.AddMeter(1, type);
    channel_.Protocol().Running = 1;
  }
  ~Simulated() { channel_.Protocol().Running = 0; }

  /// Listed times, newest first.
  std::vector<FILETIME> List(std::uint32_t tag, const char* from, const char* to) {
    FILETIME start = TimeAt(from);
    FILETIME end = TimeAt(to);
    TimestampList list{};
    EXPECT_EQ(1U, channel_.Protocol().GetHistoryTimestamps(type_, tag, 0, &start, &end, &list)) << tag;
    return {list.Times.begin(), list.Times.end()};
  }

  HistoryValue Read(std::uint32_t tag, const FILETIME& time) {
    const HistoryItem item{.hostWord0_ = 0,
                           .DeviceIndex = 0,
                           .hostWord8_ = 0,
                           .MeterType = type_,
                           .TagId = tag,
                           .Tariff = IsProfile(tag) ? std::uint8_t{0} : TariffOf(tag)};
    HistoryValue value{};
    EXPECT_EQ(1U, channel_.Protocol().ReadHistoryValue(type_, &item, &time, &value)) << tag;
    return value;
  }

  std::optional<double> Expected(std::uint32_t tag, sim::MeterTime stamp) {
    const sim::MeterView view = meter_.View(0);
    if (!IsProfile(tag)) return sim::ExpectedArchive(view, tag, stamp);
    const auto power = sim::ExpectedProfile(view, tag, view.wall.TimeOf(stamp));
    return power && power->whole ? std::optional(power->value) : std::nullopt;
  }

  std::uint32_t Depth(std::uint32_t tag) { return channel_.Protocol().GetHistoryDepth(type_, tag); }
  std::size_t Requests() { return channel_.Line().RequestCount(); }

 private:
  static sim::MeterSpec Parsed(std::uint32_t type, const std::string& more) {
    sim::MeterSpec spec;
    std::string error;
    EXPECT_TRUE(sim::ParseMeterSpec("1:" + std::to_string(type) + ":at=2026-11-20T10:40:00" + more, spec, error)) << error;
    return spec;
  }

  const TimeZone zone_{"UTC"};
  std::uint32_t type_;
  TestChannel channel_;
  sim::Meter meter_;
};

/// Records of the tag that the meter keeps and that show what its model says.
int CompareTag(Simulated& simulated, std::uint32_t tag) {
  const bool profile = IsProfile(tag);
  int right = 0;
  for (const FILETIME& time :
       simulated.List(tag, profile ? "2026-11-19 10:00" : "2020-01-01", profile ? "2026-11-20 10:30" : "2030-01-01")) {
    const auto expected = simulated.Expected(tag, MeterTimeOf(time));
    if (!expected) continue;
    const HistoryValue value = simulated.Read(tag, time);
    const double shown = tag < kFirstCumulative ? double{value.Value.fltVal} : value.Value.dblVal;
    EXPECT_EQ(kGood, value.Quality) << tag << " " << TimeText(time);
    EXPECT_NEAR(*expected, shown, std::fabs(*expected) * 2e-7 + 1e-9) << tag << " " << TimeText(time);
    ++right;
  }
  return right;
}

TEST(SimulatedHistory, EveryTagOfEveryTypeShowsTheModel) {
  for (const std::uint32_t type : {0U, 1U, 2U, 3U, 6U, 7U, 8U, 11U, 12U}) {
    SCOPED_TRACE("type " + std::to_string(type));
    Simulated simulated(type, type == 2 || type == 12 ? "" : ":ku=100:ki=20");
    for (std::uint32_t tag = kFirstHdaId; tag <= kLastHistory; ++tag) {
      // What is browsed, listed and kept follows three tables that do not agree everywhere.
      if (!SupportsHdaTag(type, tag) || simulated.Depth(tag) == 0) continue;
      EXPECT_LE(1, CompareTag(simulated, tag)) << tag;
    }
  }
}

TEST(SimulatedHistory, AWholeRingIsListedAndThenServedFromTheStore) {
  Simulated simulated(1, ":period=60:searchpolls=0");
  const std::size_t listed = simulated.List(kFirstProfile, "2020-01-01 00:00", "2026-11-20 10:30").size();
  EXPECT_LE(4094U, listed);
  const std::size_t before = simulated.Requests();
  EXPECT_EQ(listed, simulated.List(kFirstProfile, "2026-06-02 20:00", "2026-11-20 10:30").size());
  EXPECT_EQ(3U, simulated.Requests() - before) << "clock, period and coefficients; no search and no record";
}

}  // namespace
}  // namespace ostrel::test
