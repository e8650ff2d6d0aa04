// Energy archives: the request for each class, type and time, and the value in the answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/history/HistoryMeter.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

/// The archive request of a read, with its check; empty when there was none.
std::string ArchiveRequest(HistoryChannel& history, std::uint32_t tagId, std::string_view time, std::uint8_t tariff = 1) {
  history.channel.Line().ClearRecords();
  EXPECT_EQ(1U, history.Read(tagId, time, tariff).result) << tagId << " " << time;
  std::string archive;
  for (const SentRequest& request : history.channel.Line().Requests()) {
    if (request.bytes[1] == 0x05 || request.bytes[1] == 0x0A) archive += ToHex(request.bytes);
  }
  return archive;
}

struct MonthRow {
  const char* time;
  const char* clock;
  std::uint32_t type;
  const char* interval;    // byte 2 of the request of an interval month
  const char* cumulative;  // byte 3 of that of a cumulative one
};

class ArchiveMonths : public ::testing::TestWithParam<MonthRow> {};

TEST_P(ArchiveMonths, AreAddressedByTheMonthThatEnded) {
  const MonthRow& row = GetParam();
  HistoryChannel history(row.type);
  history.meter.clock = row.clock;
  const auto expect = [&](std::uint32_t tag, const std::string& frame) {
    EXPECT_EQ(ToHex(Frame(frame)), ArchiveRequest(history, tag, row.time))
        << row.time << " clock " << row.clock << " type " << row.type;
  };
  expect(40036, std::string("01 05 ") + row.interval + " 01");
  expect(40156, std::string("01 0A 83 ") + row.cumulative + " 01 0F 00");
}

constexpr MonthRow kMonths[] = {
    {"2026-01-01", "2026-01-15", 1, "3C", "01"},  {"2026-01-01", "2026-01-15", 6, "3C", "01"},
    {"2026-01-01", "2026-12-15", 1, "3C", "01"},  {"2026-01-01", "2026-12-15", 6, "3D", "01"},
    {"2026-01-01", "2026-12-15", 8, "3D", "01"},  {"2026-01-01", "2025-12-15", 8, "3C", "01"},
    {"2025-12-01", "2026-11-15", 1, "3B", "0C"},  {"2025-12-01", "2026-11-15", 11, "3D", "0C"},
    {"2026-12-01", "2026-12-15", 6, "3B", "0C"},  {"2025-12-01", "2026-12-15", 1, "3B", "0C"},
    {"2025-12-01", "2026-12-15", 7, "3B", "0D"},  {"2025-04-01", "2026-03-15", 3, "33", "04"},
    {"2025-04-01", "2026-03-15", 8, "3D", "04"},  {"2025-03-01", "2026-03-15", 12, "32", "03"},
    {"2025-03-01", "2026-03-15", 11, "32", "0D"}, {"2024-04-01", "2026-03-15", 6, "33", "04"},
};
INSTANTIATE_TEST_SUITE_P(Rows, ArchiveMonths, ::testing::ValuesIn(kMonths));

TEST(ArchiveEnergy, FramesAreWholeWithTheirChecks) {
  HistoryChannel type6(6);
  type6.meter.clock = "2026-12-15 00:00:00";
  EXPECT_EQ("01 05 3D 01 C0 89", ArchiveRequest(type6, 40036, "2026-01-01"));
  EXPECT_EQ("01 0A 83 0D 01 0F 00 18 28", ArchiveRequest(type6, 40156, "2025-12-01"));
  HistoryChannel type1(1);
  EXPECT_EQ("01 0A 06 1D 01 0F 00 D1 36", ArchiveRequest(type1, 40000, "2012-03-01"));
  EXPECT_EQ("01 0A 81 00 00 0F 00 32 84", ArchiveRequest(type1, 40192, "2026-01-01", 0));
}

TEST(ArchiveEnergy, TheDayArchiveIsAddressedByTheDayThatEnded) {
  const struct {
    const char* zone;
    const char* time;
    const char* day;
  } rows[] = {
      {"Europe/Berlin", "2012-03-01 17:30", "1D"}, {"Europe/Berlin", "2026-01-01", "1F"},
      {"Europe/Berlin", "2026-03-01", "1C"},       {"Europe/Berlin", "2026-03-29", "1C"},
      {"Europe/Berlin", "2026-03-30", "1C"},  // a day of 23 hours lies between
      {"Europe/Berlin", "2026-03-31", "1E"},       {"Europe/Berlin", "2026-10-25", "18"},
      {"Europe/Berlin", "2026-10-26", "19"},       {"UTC", "2026-03-30", "1D"},
  };
  for (const auto& row : rows) {
    const TimeZone zone(row.zone);
    if (!zone.Applies()) continue;
    for (const std::uint32_t type : {1U, 8U}) {
      HistoryChannel history(type);
      const std::string frame = std::string("01 0A 06 ") + row.day + " 05 0F 00";
      EXPECT_EQ(ToHex(Frame(frame)), ArchiveRequest(history, 40009, row.time, 5)) << row.zone << " " << row.time;
    }
  }
}

TEST(ArchiveEnergy, ArchivesWithoutADateIgnoreTheTime) {
  for (const std::uint32_t type : {0U, 2U, 3U, 6U, 7U, 11U, 12U}) {
    HistoryChannel history(type);
    for (const char* time : {"2026-11-22", "1999-01-01", "2150-06-30 12:00"}) {
      EXPECT_EQ(ToHex(Frame("01 05 50 07")), ArchiveRequest(history, 40000, time, 7)) << type << " " << time;
      EXPECT_EQ(ToHex(Frame("01 05 20 00")), ArchiveRequest(history, 40107, time, 0)) << type << " " << time;
    }
  }
}

TEST(ArchiveEnergy, CumulativeDaysAndYearsFollowTheMetersClock) {
  HistoryChannel history(1);
  history.meter.clock = "2026-11-22 00:10:00";
  const struct {
    std::uint32_t tag;
    const char* time;
    const char* frame;  // empty: nothing is asked
  } rows[] = {
      {40120, "2026-11-22 23:59", "01 0A 84 00 01 0F 00"},
      {40120, "2026-11-21", "01 0A 85 00 01 0F 00"},
      {40120, "2026-11-20", "01 0A 85 00 01 0F 00"},
      {40120, "2025-11-22", "01 0A 85 00 01 0F 00"},
      {40192, "2026-06-01", "01 0A 81 00 01 0F 00"},
      {40192, "2025-01-01", "01 0A 82 00 01 0F 00"},
      {40192, "2024-01-01", ""},
      {40192, "2027-01-01", ""},
  };
  for (const auto& row : rows) {
    const std::string expected = row.frame[0] != 0 ? ToHex(Frame(row.frame)) : "";
    EXPECT_EQ(expected, ArchiveRequest(history, row.tag, row.time)) << row.tag << " " << row.time;
  }
  history.TakeRequests();
  EXPECT_EQ(kUntouchedWord, history.Read(40192, "2024-01-01").value.Quality);
  EXPECT_THAT(history.TakeRequests(), ElementsAre("01 08 02", "01 04 00"));
}

TEST(ArchiveEnergy, EveryTagTakesItsOwnEnergy) {
  HistoryChannel history(1);  // 20000, 40000, 60000, 80000 impulses of half weight
  const std::uint32_t firsts[] = {40000, 40036, 40072, 40120, 40156, 40192};
  for (const std::uint32_t first : firsts) {
    for (std::uint32_t tag = first; tag < first + 36; ++tag) {
      const auto reading = history.Read(tag, "2026-01-01");
      const double expected = 2.0 * ((tag - first) / 9 + 1);
      EXPECT_EQ(kGood, reading.value.Quality) << tag;
      EXPECT_EQ(expected, first < 40120 ? double{reading.value.Value.fltVal} : reading.value.Value.dblVal) << tag;
      EXPECT_EQ(0xA5A5, reading.value.Value.vt) << "the type word is the host's";
    }
  }
}

TEST(ArchiveEnergy, ScalesByConstantAndSignedCoefficients) {
  const struct {
    const char* raw;  // of A+
    std::uint32_t constant;
    const char* coefficients;
    double value;
  } rows[] = {
      {"00 00 4E 20", 5000, "00 01 00 01", 2.0},
      {"00 00 4E 20", 5000, "00 0A 00 14", 400.0},
      {"FF FF FF FF", 5000, "00 01 00 01", -0.0001},
      {"80 00 00 00", 1, "00 01 00 01", -1073741824.0},
      {"00 00 4E 20", 5000, "FF FF 00 02", -4.0},
      {"00 00 4E 20", 0x80001388, "00 01 00 01", 2.0},  // the doubled constant is a 32-bit number
  };
  for (const auto& row : rows) {
    HistoryChannel history(6);
    history.Entry().MeterConstant = row.constant;
    history.meter.coefficients = Hex(row.coefficients);
    history.meter.energies = Hex(std::string(row.raw) + "00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_DOUBLE_EQ(row.value, history.Read(40120, "2026-11-22").value.Value.dblVal) << row.raw << " " << row.constant;
    EXPECT_FLOAT_EQ(static_cast<float>(row.value), history.Read(40000, "2026-11-22").value.Value.fltVal) << row.raw;
  }
}

TEST(ArchiveEnergy, AFloatTouchesFourBytesOnly) {
  HistoryChannel history(0);
  const auto reading = history.Read(40000, "2026-11-22");
  std::uint32_t behind = 0;
  std::memcpy(&behind, reinterpret_cast<const std::byte*>(&reading.value.Value) + 12, sizeof behind);
  EXPECT_EQ(kUntouchedWord, behind);
}

TEST(ArchiveEnergy, AnUnknownConstantMakesABadValueAndNoDivision) {
  for (const std::uint32_t constant : {0U, 0x80000000U}) {
    HistoryChannel history(1);
    history.Entry().MeterConstant = constant;
    const auto reading = history.Read(40120, "2026-11-22");
    EXPECT_EQ(1U, reading.result);
    EXPECT_EQ(kBad, reading.value.Quality);
    EXPECT_EQ(0xA5A5A5A5A5A5A5A5, reading.value.Value.ullVal);
  }
}

TEST(ArchiveEnergy, ASilentMeterIsBadOnlyOnceTheArchiveWasAsked) {
  const struct {
    const char* silentTo;
    std::uint32_t quality;
  } rows[] = {{"01 08 02", kUntouchedWord}, {"01 04 00", kUntouchedWord}, {"01 05", kBad}};
  for (const auto& row : rows) {
    HistoryChannel history(0);
    history.meter.silentTo = row.silentTo;
    const auto reading = history.Read(40000, "2026-11-22");
    EXPECT_EQ(0U, reading.result) << row.silentTo;
    EXPECT_EQ(row.quality, reading.value.Quality) << row.silentTo;
    EXPECT_EQ(kUntouchedWord, static_cast<std::uint32_t>(reading.value.Value.lVal)) << row.silentTo;
  }
}

TEST(ArchiveEnergy, AsksCoefficientsThenWaitsThenTheClock) {
  HistoryChannel history(0);
  EXPECT_EQ(1U, history.Read(40000, "2026-11-22").result);
  const auto requests = history.channel.Line().Requests();
  EXPECT_THAT(history.TakeRequests(), ElementsAre("01 08 02", "01 04 00", "01 05 50 01"));
  EXPECT_EQ(200U, requests[1].tick - requests[0].tick);
  EXPECT_EQ(0U, requests[2].tick - requests[1].tick);
  // A meter without transformers is not asked for its coefficients; the pause stays.
  HistoryChannel plain(12);
  const std::uint32_t before = plain.channel.Clock().TickCount();
  EXPECT_EQ(1U, plain.Read(40000, "2026-11-22").result);
  EXPECT_EQ(200U, plain.channel.Line().Requests()[0].tick - before);
  EXPECT_THAT(plain.TakeRequests(), ElementsAre("01 04 00", "01 05 50 01"));
}

TEST(ArchiveEnergy, ATypeThatIsNotServedEndsBeforeTheArchive) {
  for (const std::uint32_t type : {4U, 5U, 9U, 10U, 13U, 77U}) {
    HistoryChannel history(type);
    const auto reading = history.Read(40000, "2026-11-22");
    EXPECT_EQ(1U, reading.result) << type;
    EXPECT_EQ(kUntouchedWord, reading.value.Quality) << type;
    EXPECT_THAT(history.TakeRequests(), ElementsAre("01 08 02", "01 04 00")) << type;
  }
}

TEST(ArchiveEnergy, DatesThatAreNone) {
  HistoryChannel history(1);
  // No calendar of ours has the day before; the archive is not asked.
  const auto early = history.Read(40000, "1601-01-02");
  EXPECT_EQ(0U, early.result);
  EXPECT_EQ(kBad, early.value.Quality);
  EXPECT_THAT(history.TakeRequests(), ElementsAre("01 08 02", "01 04 00"));
  // A clock with an impossible date, and a time that has no fields: nothing is written.
  history.meter.clock = "2026-13-01 00:00:00";
  EXPECT_EQ(1U, history.Read(40036, "2026-11-01").result);
  const HistoryItem item{.hostWord0_ = 0, .DeviceIndex = 0, .hostWord8_ = 0, .MeterType = 1, .TagId = 40000, .Tariff = 0};
  HistoryValue value{};
  history.TakeRequests();
  const FILETIME unreadable = {0xFFFFFFFF, 0xFFFFFFFF};
  EXPECT_EQ(1U, history.Protocol().ReadHistoryValue(1, &item, &unreadable, &value));
  EXPECT_EQ(0U, value.Quality);
  EXPECT_TRUE(history.TakeRequests().empty());
}

TEST(ArchiveEnergy, BadArgumentsAreRejectedWithoutAWrite) {
  HistoryChannel history(1);
  HistoryItem item{.hostWord0_ = 0, .DeviceIndex = 1, .hostWord8_ = 0, .MeterType = 1, .TagId = 40000, .Tariff = 0};
  HistoryValue value{};
  value.Quality = kUntouchedWord;
  const FILETIME time = TimeAt("2026-11-22");
  for (const std::uint32_t tag : {40000U, 40108U, 40192U}) {
    item.TagId = tag;
    EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, &time, &value)) << tag;
  }
  item.DeviceIndex = 0;
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, nullptr, &time, &value));
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, &time, nullptr));
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, nullptr, &value));
  for (const std::uint32_t tag : {0U, 39999U, 40228U}) {
    item.TagId = tag;
    EXPECT_EQ(1U, history.Protocol().ReadHistoryValue(1, &item, &time, &value)) << tag;
  }
  EXPECT_EQ(kUntouchedWord, value.Quality);
  EXPECT_TRUE(history.TakeRequests().empty());
}

}  // namespace
}  // namespace ostrel::test
