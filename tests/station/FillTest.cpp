// The filling of gaps against simulated meters on the virtual clock: what the archive holds in the end is what the meters'
// models say, record by record.
#include <gtest/gtest.h>

#include "host/ports/Devices.h"
#include "host/session/Channel.h"
#include "platform/clock.h"
#include "platform/virtual_clock.h"
#include "station/archive/Schema.h"
#include "station/collect/Completeness.h"
#include "station/collect/MeterFill.h"
#include "tests/expectation/HistoryExpectation.h"
#include "tests/support/PlugInFactory.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TimeZone.h"

namespace ostrel::station {
namespace {

constexpr std::uint32_t kFirstTag = 40108;
constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kHour = 3600;

/// A channel with simulated meters, and what fills the archive from it.
class Site {
 public:
  Site(host::HostServices& services, const std::vector<std::string>& specs) {
    host::ChannelConfig config;
    config.port = "COM1";
    config.device = "simulated";
    std::vector<sim::Meter> meters;
    for (const std::string& text : specs) {
      sim::MeterSpec spec;
      std::string error;
      EXPECT_TRUE(sim::ParseMeterSpec(text, spec, error)) << error;
      meters.emplace_back(spec, 1);
      host::MeterConfig meter;
      meter.name = "m" + std::to_string(spec.address);
      meter.address = spec.address;
      meter.type = spec.type;
      meter.polled = false;
      config.meters.push_back(meter);
    }
    line_ = std::make_shared<sim::Line>(std::move(meters));
    channel_ = std::make_unique<host::Channel>(plugin_, services, config);
    services.AddPort("COM1", {.open = host::SimulatedOpener(line_), .line = {}, .observer = {}});
    for (const host::Meter& meter : channel_->Meters()) {
      fills_.push_back(std::make_unique<MeterFill>(*channel_, meter, Tags(meter)));
    }
  }

  [[nodiscard]] std::size_t Count() const { return fills_.size(); }
  [[nodiscard]] sim::MeterView View(std::size_t meter) { return line_->Meters()[meter].View(platform::UtcMilliseconds()); }
  [[nodiscard]] std::int64_t Now(std::size_t meter) {
    const sim::MeterView view = View(meter);
    return view.wall.Shown(view.now);
  }

  /// One look at a meter, until nothing that it can give is missing. Gives the number of portions read.
  int Fill(std::size_t meter, Archive& archive, MeterKey key) {
    MeterFill& fill = *fills_[meter];
    if (!fill.BeginCheck(archive, key, Now(meter))) return 0;
    int portions = 0;
    for (; portions < 5000; ++portions) {
      const std::optional<Portion> portion = fill.Next(archive, key, Now(meter));
      if (!portion) break;
      const FillResult result = fill.Read(*portion, Now(meter));
      Transaction transaction(archive.Base());
      Keep(archive, key, result, [](const StoredRecord&) {});
      transaction.Commit();
      fill.Kept(result);
    }
    return portions;
  }

 private:
  std::vector<host::HistoryTag> Tags(const host::Meter& meter) {
    std::vector<host::HistoryTag> tags;
    for (const host::TagDefinition& tag : host::ReadTagDefinitions(channel_->Protocol(), meter.type.id, kBranchHda)) {
      const bool wanted = tag.id == kFirstTag || tag.id == kFirstTag + 2 || tag.id == 40008;
      if (wanted) tags.push_back(host::DescribeHistoryTag(tag, std::nullopt));
    }
    return tags;
  }

  test::PlugInFactory factory_;
  host::Plugin plugin_{host::ComPointer<IClassFactory>(&factory_)};
  std::shared_ptr<sim::Line> line_;
  std::unique_ptr<host::Channel> channel_;
  std::vector<std::unique_ptr<MeterFill>> fills_;
};

class FillTest : public testing::Test {
 protected:
  FillTest() {
    platform::ReplaceClock(&clock_);
    base_->Run("PRAGMA synchronous = OFF");
    Migrate(*base_);
  }
  ~FillTest() override { platform::ReplaceClock(nullptr); }

  MeterKey KeyOf(std::size_t meter, const std::string& serial) {
    MeterRow row;
    row.place = {.station = "s", .channel = "COM1", .name = "m" + std::to_string(meter + 1)};
    row.serial = serial;
    row.since = platform::UtcSeconds();
    return archive_.Enter(row);
  }

  // Every record of the model up to an hour ago, and no other.
  void ExpectModel(Site& site, std::size_t meter, MeterKey key, std::uint32_t tag, std::int64_t begin) {
    const sim::MeterView view = site.View(meter);
    std::map<std::int64_t, sim::ExpectedPower> expected;
    for (const sim::MeterTime end : sim::ExpectedProfileTimes(view, tag, {begin, view.now - 2 * kHour})) {
      expected.emplace(view.wall.Shown(end), *sim::ExpectedProfile(view, tag, end));
    }
    ASSERT_FALSE(expected.empty());
    std::size_t there = 0;
    for (const StoredRecord& record : archive_.Records(key, tag, 0, expected.rbegin()->first + 1)) {
      if (record.state == RecordState::Absent) continue;
      const auto model = expected.find(record.time);
      ASSERT_NE(expected.end(), model) << meter << ": no such record " << record.time << " " << static_cast<int>(record.state);
      ++there;
      EXPECT_EQ(model->second.whole ? RecordState::Good : RecordState::Bad, record.state) << meter << " " << record.time;
      if (!model->second.whole) continue;
      EXPECT_NEAR(model->second.value, record.value.value_or(-1), std::abs(model->second.value) * 2e-7 + 1e-9)
          << meter << " " << record.time;
    }
    EXPECT_EQ(expected.size(), there) << meter;
  }

  void ExpectComplete(MeterKey key) {
    MeterRow row;
    row.key = key;
    std::int64_t lost = 0;
    const std::vector<DayCount> days = CountDays(archive_, row, {.from = 0, .to = platform::UtcSeconds() + 2 * kDay});
    for (const DayCount& day : days) lost += day.lost;
    EXPECT_FALSE(days.empty());
    EXPECT_EQ(0, lost);
    EXPECT_EQ(1.0, Share(days));
  }

  test::TimeZone zone_{"CET-1CEST,M3.5.0,M10.5.0/3"};
  platform::VirtualClock clock_{1'773'097'200'000};  // 2026-03-10 00:00 there
  test::TemporaryFolder folder_;
  std::unique_ptr<Database> base_ = OpenSqlite(folder_.File("archive.db"));
  Archive archive_{*base_};
  host::HostServices services_{{}};
};

// Over the change to summer time, with power cuts, clocks that are off, and one meter that nobody reaches for three days.
TEST_F(FillTest, ThirtyDaysOfSixteenMetersAreTheirModels) {
  constexpr std::size_t kMeters = 16;
  const std::vector<std::string> kinds = {
      "1", "8", "11:period=15", "1:powercut=2026-03-15T10:10:00/2026-03-16T13:20:00", "0:offset_s=-300", "6:period=60"};
  std::vector<std::string> specs;
  for (std::size_t i = 0; i < kMeters; ++i) {
    specs.push_back(std::to_string(i + 1) + ":" + kinds[i % kinds.size()] + ":dst=1:installed=2026-03-10T00:00:00");
  }
  Site site(services_, specs);
  std::vector<MeterKey> keys;
  for (std::size_t i = 0; i < kMeters; ++i) keys.push_back(KeyOf(i, "n"));
  for (int look = 0; look < 30 * 4; ++look) {
    clock_.Advance(6 * kHour * 1000);
    for (std::size_t i = 0; i < kMeters; ++i) {
      const bool away = i == 4 && look >= 40 && look < 52;
      if (!away) (void)site.Fill(i, archive_, keys[i]);
    }
  }
  for (std::size_t i = 0; i < kMeters; ++i) {
    SCOPED_TRACE(specs[i]);
    for (const std::uint32_t tag : {kFirstTag, kFirstTag + 2}) ExpectModel(site, i, keys[i], tag, 0);
    if (i != 4) ExpectComplete(keys[i]);
    EXPECT_EQ(0, site.Fill(i, archive_, keys[i]) > 40) << "what is settled is not asked for again";
  }
}

// A full memory that began long before the station did; then the period changes, and later another meter stands there.
TEST_F(FillTest, APeriodThatChangesAndAMeterThatIsExchangedAreKeptApart) {
  Site old(services_, {"1:1:installed=2026-02-20T00:00:00:period=30"});
  const MeterKey key = KeyOf(0, "first");
  EXPECT_LT(old.Fill(0, archive_, key), 400) << "the beginning is found without a walk over the whole memory";
  ExpectModel(old, 0, key, kFirstTag, 0);
  ExpectComplete(key);

  clock_.Advance(5 * kHour * 1000);
  const std::int64_t changed = old.Now(0);
  Site other(services_, {"1:1:installed=2026-03-10T05:00:00:period=15"});
  clock_.Advance(kDay * 1000);
  (void)other.Fill(0, archive_, key);
  EXPECT_EQ(900, archive_.Expectations(key, kFirstTag).back().period);
  EXPECT_LE(changed, archive_.Expectations(key, kFirstTag).back().since);
  // What the old memory held and nobody fetched is lost, and said to be.
  std::int64_t lost = 0;
  for (const StoredRecord& record : archive_.Records(key, kFirstTag, 0, other.Now(0))) lost += record.state == RecordState::Lost;
  EXPECT_EQ(11, lost) << "every half hour from 00:00 to 05:00, after the look at 00:00 sharp";

  const MeterKey second = KeyOf(0, "second");
  EXPECT_NE(key, second);
  EXPECT_TRUE(archive_.Records(second, kFirstTag, 0, other.Now(0)).empty());
  EXPECT_EQ(key, KeyOf(0, "first")) << "a meter that comes back is the one that it was";
}

}  // namespace
}  // namespace ostrel::station
