// Record times of archives and profiles, the check for one, and what a listing asks of the meter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/history/HistoryChannel.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kEarly = "2000-01-01";
constexpr const char* kLate = "2100-01-01";

std::string Joined(const Texts& texts, const char* between) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : between) + text;
  return all;
}

/// "10:30" of the day that the tests stand at, "2026-03-29 03:00:30" of another one.
std::string Short(std::string time) {
  if (time.ends_with(":00")) time.resize(time.size() - 3);
  return time.starts_with("2026-11-22 ") ? time.substr(11) : time;
}
std::string Long(const std::string& time) { return time.size() < 16 ? "2026-11-22 " + time : time; }

/// All of a few times, or their number with the first and the last of them.
std::string Shown(Texts times) {
  for (std::string& time : times) time = Short(time);
  if (times.size() <= 7) return Joined(times, ", ");
  return std::to_string(times.size()) + ": " + times.front() + " ... " + times.back();
}

/// Sets up what the line of the table's fourth column does.
void Prepare(HistoryChannel& history, const std::string& line) {
  for (const std::string& part : Split(line, ';')) {
    const TableRow sides = Split(part, '=');
    if (part == "new") history.Entry().InfoRead = 0;
    if (sides.size() < 2) continue;
    TableRow replies = Split(sides[1], '/');
    for (std::string& reply : replies) reply = reply.empty() || reply == "*" ? reply : "01 " + reply;
    if (sides[0] == "clock") {
      history.ShowClock(sides[1]);
    } else if (replies.size() == 1) {
      history.Line().ReplyAlways("01 " + sides[0], replies[0]);
    } else {
      history.Line().Reply("01 " + sides[0], replies);
    }
  }
}

void ExpectRequests(const std::string& claims, const Texts& sent) {
  for (const std::string& claim : Split(claims, ';')) {
    const std::size_t mark = std::min(claim.find_first_of(":x"), claim.size());
    Texts found = sent;
    std::erase_if(found, [&](const std::string& text) { return !text.starts_with(claim.substr(0, mark)); });
    const bool counted = claim[mark] == 'x';
    EXPECT_EQ(claim.substr(mark), claim.empty() ? "" : counted ? "x" + std::to_string(found.size()) : ":" + Joined(found, ","));
  }
}

std::size_t Records(const Texts& requests) {
  return static_cast<std::size_t>(std::ranges::count_if(requests, [](auto& text) { return text.starts_with("06"); }));
}

TEST(HistoryListing, ListsWhatTheMeterKeepsAndAsksForNoMore) {
  for (const TableRow& row : ReadTable("history/listings.tsv", 11)) {
    SCOPED_TRACE(Joined(row, " | "));
    const TimeZone zone(row[1].empty() ? "UTC" : row[1]);
    if (!row[1].empty() && !zone.Applies()) continue;
    const std::size_t more = row[2].find(':');
    HistoryChannel history(Numbers(row[2])[0], more == std::string::npos ? "" : row[2].substr(more));
    Prepare(history, row[3]);
    const std::uint32_t tag = Numbers(row[4])[0];
    const Listing listing = history.List(tag, Long(row[5]), Long(row[6]));
    EXPECT_EQ(row[7], std::to_string(listing.result) + " " + std::to_string(listing.period));
    EXPECT_EQ(row[8].empty() ? row[5] + " .. " + row[6] : row[8], Short(listing.start) + " .. " + Short(listing.end));
    EXPECT_EQ(row[9], Shown(listing.times));
    EXPECT_EQ(listing.count, listing.times.size());
    const Texts requests = history.Take();
    ExpectRequests(row[10], requests);
    if (listing.result == 0) continue;
    EXPECT_EQ(row[3].starts_with("new") ? 1U : history.Entry().InfoRead, history.Entry().InfoRead);
    // Again: a profile's records are kept, four values each, in the store of its own and not asked for twice.
    EXPECT_EQ(listing.times, history.List(tag, Long(row[5]), Long(row[6])).times);
    EXPECT_EQ(Records(requests), listing.count * (IsProfile(tag) ? 1 : 0) + Records(history.Take()));
    for (std::size_t i = 0; i < listing.times.size(); i += std::max<std::size_t>(listing.times.size() - 1, 1)) {
      const std::string& time = listing.times[i];
      EXPECT_EQ(IsProfile(tag) ? 0U : 1U, history.Check(tag, time)) << "a profile's record is never confirmed";
      EXPECT_EQ(0U, history.Check(tag, time.substr(0, 17) + "01"));
    }
    const std::size_t stores[] = {history.Entry().ProfileStore1.Size(), history.Entry().ProfileStore2.Size(),
                                  history.Entry().ProfileStore3.Size()};
    for (std::uint32_t i = 0; i < 3; ++i) {
      EXPECT_EQ(IsProfile(tag) && (tag - kMain) / 4 == i ? 4 * listing.count : 0, stores[i]) << i;
    }
  }
}

TEST(HistoryListing, ASearchMayTakeAHundredPollsAndNoMore) {
  for (const int polls : {99, 100}) {
    HistoryChannel history(1, ":searchpolls=" + std::to_string(polls));
    const Listing listing = history.List(kMain, "2026-11-22 10:30", "2026-11-22 11:00");
    EXPECT_EQ(polls == 99 ? 1U : 0U, listing.result) << "the hour may exist, so it is not passed over";
    EXPECT_EQ(listing.result, listing.count);
    const auto requests = history.Line().Requests();
    EXPECT_EQ(10U, requests[5].tick - requests[4].tick) << "a short rest between two polls";
    EXPECT_EQ(100U, history.Take("08 18 00").size());
  }
}

TEST(HistoryListing, AddsToTheCountOfTheCaller) {
  HistoryChannel history(12);
  FILETIME start = TimeAt(kEarly);
  FILETIME end = TimeAt(kLate);
  TimestampList list{};
  list.Count = 7;
  list.Period = 99;
  EXPECT_EQ(1U, history.Protocol().GetHistoryTimestamps(12, 40192, 0, &start, &end, &list));
  EXPECT_EQ(9U, list.Count);
  EXPECT_EQ(99U, list.Period);
  EXPECT_EQ(2U, list.Times.Size());
}

TEST(HistoryListing, ReadsTheMetersInformationOnceAndNothingOfAMeterThatIsSwitchedOff) {
  HistoryChannel history(1);
  history.Entry().InfoRead = 0;
  history.Entry().MeterConstant = 0;
  EXPECT_EQ(1U, history.List(40072, kEarly, kLate).times.size());
  EXPECT_EQ(5000U, history.Entry().MeterConstant);
  history.Take();
  EXPECT_EQ(1U, history.List(40072, kEarly, kLate).result);
  EXPECT_THAT(history.Take(), ElementsAre("04 00"));
  history.Entry().ExchangeOn = 0;
  EXPECT_EQ(0U, history.List(40000, kEarly, kLate).result);
  EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
  EXPECT_THAT(history.Take(), IsEmpty());
  EXPECT_EQ(1U, history.Read(40000, "2026-11-22").result) << "a read does not look at the switch";
}

TEST(HistoryListing, BadArgumentsAreRejectedWithoutAWrite) {
  HistoryChannel history(1);
  IProtocol& protocol = history.Protocol();
  FILETIME start = TimeAt("2026-01-01 00:07:00");
  FILETIME end = TimeAt("2026-01-01 09:07:00");
  TimestampList list{};
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0, nullptr, &end, &list));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0, &start, nullptr, &list));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0, &start, &end, nullptr));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 1, &start, &end, &list));
  EXPECT_EQ(0U, protocol.GetHistoryTimestamps(1, 40108, 0xFFFFFFFF, &start, &end, &list));
  EXPECT_EQ(0U, protocol.CheckHistoryTimestamp(1, 40000, 0, nullptr));
  EXPECT_EQ(0U, protocol.CheckHistoryTimestamp(1, 40000, 1, &start));
  EXPECT_EQ(-1, protocol.GetHistoryInterval(40108, 0, nullptr));
  EXPECT_EQ("2026-01-01 00:07:00", TimeText(start));
  EXPECT_EQ(0U, list.Count);
  EXPECT_THAT(history.Take(), IsEmpty());
}

TEST(HistoryCheck, DeniesWhatIsKnownNotToBe) {
  const std::tuple<std::uint32_t, std::uint32_t, const char*> rows[] = {{1, 40000, "2026-10-23"}, {0, 40036, "2025-12-01"},
                                                                        {8, 40120, "2026-11-22"}, {5, 40000, "2026-11-22"},
                                                                        {0, 40112, "2026-11-22"}, {1, 40228, "2026-11-22"}};
  for (const auto& [type, tag, time] : rows) EXPECT_EQ(0U, HistoryChannel(type).Check(tag, time)) << type << " " << tag;
  HistoryChannel history(1);
  history.ShowClock("2026-02-30 00:00:00");
  EXPECT_EQ(1U, history.Check(40000, "2026-02-28")) << "what is not known is not denied";
  history.Silence("08 06");
  EXPECT_EQ(1U, history.Check(40108, "2026-11-22"));
  history.Silence("04");
  EXPECT_EQ(0U, history.Check(40000, "2026-11-22"));
}

TEST(HistoryInterval, StepsAndPeriods) {
  HistoryChannel history(8, ":period=30:period2=3:period3=60");
  const struct {
    std::uint32_t tag, device;
    std::int32_t interval;
    std::uint32_t period;
    Texts requests;
  } rows[] = {{40035, 0, 2, 77, {}},        {40120, 0, 2, 77, {}},          {40036, 0, 3, 77, {}},
              {40191, 0, 3, 77, {}},        {40072, 0, 4, 77, {}},          {40227, 0, 4, 77, {}},
              {40111, 0, 0, 30, {"08 06"}}, {40112, 0, 0, 3, {"08 06 01"}}, {40119, 0, 0, 60, {"08 06 02"}},
              {40228, 0, -1, 77, {}},       {40108, 1, -1, 77, {}}};
  for (const auto& row : rows) {
    std::uint32_t period = 77;
    EXPECT_EQ(row.interval, history.Protocol().GetHistoryInterval(row.tag, row.device, &period)) << row.tag;
    EXPECT_EQ(row.period, period) << row.tag;
    EXPECT_EQ(row.requests, history.Take()) << row.tag;
  }
  history.Silence("08 06");
  std::uint32_t period = 77;
  EXPECT_EQ(-1, history.Protocol().GetHistoryInterval(40108, 0, &period));
  EXPECT_EQ(0U, period);
}

}  // namespace
}  // namespace ostrel::test
