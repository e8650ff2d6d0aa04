// History as the host program reads it, over the plug-in in this process and a simulated meter, on the virtual clock: however an
// interval is cut, it brings what one listing of the whole memory brings.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "host/session/HistoryReader.h"
#include "tests/support/SimulatedChannel.h"
#include "tests/support/TimeZone.h"

namespace ostrel::host {
namespace {

using Series = std::map<WallTime, std::optional<double>>;

constexpr std::uint32_t kType = 1;
constexpr std::uint32_t kProfileTag = 40108;
constexpr std::uint32_t kDayTag = 40008;

class ReadMeter {
 public:
  explicit ReadMeter(const std::string& keys) {
    channel.Line().keepsRecords = false;
    channel.Line().OnRequest([this](auto&) {
      if (++asked == silentFrom + 1 && silentFrom != 0) channel.Line().ReplyAlways("", "");
    });
    channel.AddMeter(1, kType, {.simulated = "searchpolls=0:" + keys});
    channel.Protocol().Running = 1;
  }
  ~ReadMeter() { channel.Protocol().Running = 0; }

  HistoryClient Client() { return {channel.Protocol(), kType, 0}; }
  HistoryOutcome Read(std::uint32_t tagId, std::optional<WallTime> from, std::optional<WallTime> to) {
    HistoryTag tag = Tag(tagId);
    series.clear();
    return HistoryReader(Client()).Read(
        tag, from, to,
        [this](const HistoryRecord& record) {
          EXPECT_TRUE(series.empty() || series.rbegin()->first < record.time) << WallTimeText(record.time);
          series[record.time] = record.value;
          qualities.insert(record.quality);
        },
        [](std::size_t done, std::size_t expected) { EXPECT_LE(done, expected); });
  }
  /// One listing that begins with the first record of an hour.
  Series Whole(WallTime from, WallTime to) {
    HistoryClient client = Client();
    Series whole;
    const HistoryListing listing = client.List(kProfileTag, {.from = from, .to = to});
    EXPECT_TRUE(listing.answered);
    for (const WallTime time : listing.times) whole[time] = client.Read(Tag(kProfileTag), time).record.value;
    return whole;
  }

  test::SimulatedChannel channel;
  Series series;
  std::set<std::uint32_t> qualities;
  std::uint32_t silentFrom = 0;  // answers so many requests; 0: all
  std::uint32_t asked = 0;

 private:
  static HistoryTag Tag(std::uint32_t id) { return DescribeHistoryTag({.id = id, .name = {}, .descriptor = {}}, std::nullopt); }
};

WallTime At(const std::string& text) { return ParseWallTime("time", text); }

/// Cuts of half an hour to two days, all over the memory. None touches the night of a change: in a zone that has it the hours of
/// that night are read by times that stand for two.
std::string PowerCuts(std::mt19937& random, WallTime begin, WallTime now, WallTime change) {
  std::string keys;
  for (int i = 0; i < 8; ++i) {
    const WallTime from = begin + static_cast<WallTime>(random() % static_cast<std::uint32_t>(now - 3 * kDaySeconds - begin));
    const WallTime to = from + 1800 + random() % (2 * kDaySeconds);
    if (from > change + 6 * kHourSeconds || to < change - 6 * kHourSeconds) {
      keys += ":powercut=" + WallTimeText(from) + "/" + WallTimeText(to);
    }
  }
  return keys;
}

TEST(HistoryReader, AnyIntervalIsItsPartOfTheWholeMemory) {
  using Row = std::tuple<WallTime, const char*, const char*, const char*>;  // period, now, change of the clock, first record
  const Row rows[] = {{3, "2026-04-02T10:40", "2026-03-29T02:00", "2026-03-10T00:03"},
                      {3, "2026-10-30T10:40", "2026-10-25T02:00", "2026-10-10T00:03"},
                      {15, "2026-04-20T10:40", "2026-03-29T02:00", "2026-01-01T00:15"},
                      {30, "2026-04-20T10:40", "2026-03-29T02:00", "2025-12-01T00:30"},
                      {30, "2026-11-20T10:40", "2026-10-25T02:00", "2026-07-01T00:30"},
                      {60, "2026-11-20T10:40", "2026-10-25T02:00", "2026-05-01T01:00"}};
  std::mt19937 random(9);
  for (const char* const zoneName : {"UTC", "Europe/Berlin"}) {
    const test::TimeZone zone(zoneName);
    for (const auto& [period, nowText, changeText, beginText] : rows) {
      const WallTime now = At(nowText);
      const WallTime change = At(changeText);
      const WallTime begin = At(beginText);
      const std::string keys =
          "dst=1:at=" + WallTimeText(now) + ":period=" + std::to_string(period) + PowerCuts(random, begin, now, change);
      const Series whole = ReadMeter(keys).Whole(begin - 20 * kDaySeconds, now + kDaySeconds);
      ASSERT_LT(500U, whole.size()) << keys;
      for (int i = 0; i < 9; ++i) {
        // Every third one lies about the change.
        const WallTime middle =
            i % 3 == 0 ? change : begin + static_cast<WallTime>(random() % static_cast<std::uint32_t>(now - begin));
        const WallTime length = kHourSeconds + random() % (99 * kHourSeconds);
        const WallTime from = middle - static_cast<WallTime>(random() % static_cast<std::uint32_t>(length));
        ReadMeter meter(keys);
        const HistoryOutcome outcome = meter.Read(kProfileTag, from, from + length);
        EXPECT_TRUE(outcome == HistoryOutcome::Complete || outcome == HistoryOutcome::MemoryEnded);
        EXPECT_EQ(Series(whole.lower_bound(from), whole.lower_bound(from + length)), meter.series)
            << zoneName << " " << keys << " " << WallTimeText(from) << " " << length;
      }
    }
  }
}

TEST(HistoryReader, TagsHaveTheirUnits) {
  const std::pair<std::uint32_t, std::string> rows[] = {{40017, "kWh"},  {40018, "kvarh"}, {40109, "kW"},   {40110, "kvar"},
                                                        {40119, "kvar"}, {40137, "kWh"},   {40227, "kvarh"}};
  for (const auto& [id, unit] : rows) {
    EXPECT_EQ(unit, DescribeHistoryTag({.id = id, .name = {}, .descriptor = {}}, std::nullopt).unit) << id;
  }
}

TEST(HistoryReader, AnArchiveEndsWithTheMeterThatFellSilent) {
  ReadMeter meter("at=2026-11-20T10:40:00");
  meter.silentFrom = 20;
  EXPECT_EQ(HistoryOutcome::Unanswered, meter.Read(kDayTag, std::nullopt, std::nullopt));
  EXPECT_GT(30U, meter.series.size());
  EXPECT_LE(meter.asked, meter.silentFrom + 2 * 3) << "two questions of three tries";
}

TEST(HistoryReader, WithoutAConstantThereIsNoValue) {
  for (const std::uint32_t tag : {kDayTag, kProfileTag}) {
    ReadMeter meter("at=2026-11-20T10:40:00");
    meter.channel.Entry(0).InfoRead = 1;
    meter.channel.Entry(0).MeterConstant = 0;
    EXPECT_EQ(HistoryOutcome::Complete, meter.Read(tag, At("2026-11-19T00:00"), At("2026-11-20T00:30")));
    EXPECT_LE(2U, meter.series.size());
    for (const auto& [time, value] : meter.series) EXPECT_FALSE(value) << WallTimeText(time);
    EXPECT_EQ(std::set<std::uint32_t>{kHistoryBad}, meter.qualities);
  }
}

}  // namespace
}  // namespace ostrel::host
