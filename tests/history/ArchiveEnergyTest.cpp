// Energy archives: the request for each class, type and time, the value in the answer, and the small requests before it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "Protocol/meter/MeterParameters.h"
#include "tests/history/HistoryChannel.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

/// With these energies in every archive, from A+ on.
struct Archives : HistoryChannel {
  explicit Archives(std::uint32_t meterType, const std::string& energies = kEnergies) : HistoryChannel(meterType) {
    for (const char* code : {"05", "0A"}) Answer(code, energies);
  }
};

TEST(ArchiveEnergy, IsAddressedByThePeriodThatEnded) {
  const TimeZone zone("Europe/Berlin");
  if (!zone.Applies()) GTEST_SKIP() << kInAnotherZone;
  for (const TableRow& row : ReadTable("history/archive_requests.tsv", 5)) {
    SCOPED_TRACE(row[0] + " " + row[1] + " " + row[2] + " " + row[3]);
    Archives history(Numbers(row[0])[0]);
    history.ShowClock(row[3]);
    const std::uint32_t tag = Numbers(row[1])[0];
    const Reading reading = history.Read(tag, row[2]);
    EXPECT_EQ(1U, reading.result);
    Texts requests = history.Take();
    std::erase_if(requests, [](const std::string& text) { return text == "08 02" || text == "04 00"; });
    EXPECT_EQ(row[4].empty() ? Texts() : Texts{row[4]}, requests);
    EXPECT_EQ(row[4].empty() ? kUntouchedWord : kGood, reading.value.Quality);
    EXPECT_EQ(0xA5A5, reading.value.Value.vt) << "the type word is the host's";
    const auto behind = static_cast<std::uint32_t>(reading.value.Value.ullVal >> 32);
    EXPECT_EQ(row[4].empty() || tag < kFirstReading, behind == kUntouchedWord) << "a float touches four bytes only";
  }
}

TEST(ArchiveEnergy, ScalesByConstantAndSignedCoefficients) {
  for (const TableRow& row : ReadTable("history/energies.tsv", 4)) {
    SCOPED_TRACE(row[0] + " " + row[1] + " " + row[2]);
    Archives history(6, row[0] + "00 00 00 00 00 00 00 00 00 00 00 00");
    history.Entry().MeterConstant = Numbers(row[1])[0];
    history.Answer("08 02", row[2] + "00 00 00 00 00 00");
    for (const std::uint32_t tag : {40000U, kFirstReading}) {
      const auto [result, value] = history.Read(tag, "2026-11-22");
      EXPECT_EQ(1U, result);
      EXPECT_EQ(row[3] == "bad" ? kBad : kGood, value.Quality);
      if (row[3] == "bad") {
        EXPECT_EQ(0xA5A5A5A5A5A5A5A5, value.Value.ullVal);
      } else if (tag == kFirstReading) {
        EXPECT_DOUBLE_EQ(DoubleOf(row[3]), value.Value.dblVal);
      } else {
        EXPECT_FLOAT_EQ(FloatOf(row[3]), value.Value.fltVal);
      }
    }
  }
}

TEST(ArchiveEnergy, ASilentMeterIsBadOnlyOnceTheArchiveWasAsked) {
  for (const auto& [request, quality] : {std::pair("08 02", kUntouchedWord), {"04 00", kUntouchedWord}, {"05", kBad}}) {
    HistoryChannel history(0);
    history.Silence(request);
    const Reading reading = history.Read(40000, "2026-11-22");
    EXPECT_EQ(0U, reading.result) << request;
    EXPECT_EQ(quality, reading.value.Quality) << request;
    EXPECT_EQ(kUntouchedWord, static_cast<std::uint32_t>(reading.value.Value.lVal)) << request;
  }
}

TEST(ArchiveEnergy, AsksCoefficientsThenWaitsThenTheClock) {
  // A meter without transformers is not asked for its coefficients; the pause stays.
  for (const auto& [type, requests] : {std::pair(0U, Texts{"08 02", "04 00", "05 50 01"}), {12U, {"04 00", "05 50 01"}}}) {
    HistoryChannel history(type);
    const std::uint32_t before = history.Clock().TickCount();
    EXPECT_EQ(1U, history.Read(40000, "2026-11-22").result);
    const auto sent = history.Line().Requests();
    EXPECT_EQ(200U, sent[requests.size() - 2].tick - before);
    EXPECT_EQ(0U, sent[requests.size() - 1].tick - sent[requests.size() - 2].tick);
    EXPECT_EQ(requests, history.Take());
  }
}

TEST(ArchiveEnergy, DatesThatAreNone) {
  HistoryChannel history(1);
  const Reading early = history.Read(40000, "1601-01-02");  // no calendar of ours has the day before
  EXPECT_EQ(0U, early.result);
  EXPECT_EQ(kBad, early.value.Quality);
  EXPECT_THAT(history.Take(), ElementsAre("08 02", "04 00")) << "the archive is not asked";
  history.ShowClock("2026-13-01 00:00:00");
  EXPECT_EQ(1U, history.Read(40036, "2026-11-01").result);
  history.Take();
  HistoryItem item = ItemOf(40000);
  HistoryValue value{};
  value.Quality = kUntouchedWord;
  const FILETIME unreadable = {0xFFFFFFFF, 0xFFFFFFFF};
  EXPECT_EQ(1U, history.Protocol().ReadHistoryValue(1, &item, &unreadable, &value));
  // Nor is anything asked or written for a meter or a tag that is not there.
  const FILETIME time = TimeAt("2026-11-22");
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, nullptr, &time, &value));
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, &time, nullptr));
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, nullptr, &value));
  for (const std::uint32_t device : {0U, 1U}) {
    for (const std::uint32_t tag : {0U, 39999U, 40000U, kMain, 40192U, 40228U}) {
      const bool exists = tag >= 40000 && tag <= 40227;
      if (device == 0 && exists) continue;
      item = ItemOf(tag, device);
      EXPECT_EQ(exists ? 0U : 1U, history.Protocol().ReadHistoryValue(1, &item, &time, &value)) << tag;
    }
  }
  EXPECT_EQ(kUntouchedWord, value.Quality);
  EXPECT_TRUE(history.Take().empty());
}

// --- the small requests

TEST(MeterParameters, TheWallClockIsReadUnchecked) {
  HistoryChannel history(1);
  const struct {
    const char* answer;
    SYSTEMTIME time;  // year, month, weekday, day, hour, minute, second, millisecond
  } rows[] = {{"30 15 10 03 21 06 12 01", {2012, 6, 3, 21, 10, 15, 30, 0}},
              {"FF 99 1A 00 00 13 99 00", {2099, 13, 0, 0, 20, 99, 165, 0}}};
  for (const auto& row : rows) {
    history.Answer("04 00", row.answer);
    SYSTEMTIME time{};
    time.wMilliseconds = 5;
    ASSERT_EQ(1U, ReadMeterTime(history.Protocol(), 0, time));
    EXPECT_EQ(0, std::memcmp(&row.time, &time, sizeof time)) << row.answer;
  }
}

TEST(MeterParameters, CoefficientsAreSignedAndSomeTypesHaveNone) {
  HistoryChannel history(1);
  const struct {
    const char* answer;
    std::uint32_t type;
    std::pair<int, int> factors;
  } rows[] = {{"01 02 7F FF", 1, {258, 32767}},
              {"FF FF 80 00", 1, {-1, -32768}},
              {"00 0A 00 14", 2, {1, 1}},
              {"00 0A 00 14", 12, {1, 1}}};
  for (const auto& row : rows) {
    history.Answer("08 02", std::string(row.answer) + " 11 22 33 44 55 66");
    TransformCoefficients coefficients{};
    EXPECT_EQ(1U, ReadTransformCoefficients(history.Protocol(), 0, row.type, coefficients));
    EXPECT_EQ(row.factors, std::pair(int{coefficients.K1}, int{coefficients.K2})) << row.answer;
  }
  EXPECT_EQ(2U, history.Take().size());
}

TEST(MeterParameters, FailuresLeaveTheOutputs) {
  HistoryChannel history(1);
  history.Answer("", "0F");
  SYSTEMTIME time{};
  time.wYear = 77;
  TransformCoefficients coefficients{.K1 = 7, .K2 = 8};
  for (const std::uint32_t device : {0U, 1U}) {
    EXPECT_EQ(0U, ReadMeterTime(history.Protocol(), device, time));
    EXPECT_EQ(0U, ReadTransformCoefficients(history.Protocol(), device, 1, coefficients));
    EXPECT_EQ(0U, ReadProfilePeriod(history.Protocol(), device, Profile::Main));
  }
  EXPECT_EQ(0U, ReadProfilePeriod(history.Protocol(), 0, static_cast<Profile>(3)));
  EXPECT_EQ(77, time.wYear);
  EXPECT_EQ(78, coefficients.K1 * 10 + coefficients.K2);
  EXPECT_EQ(3U, history.LogLines().size()) << "one message for each request that was sent";
}

}  // namespace
}  // namespace ostrel::test
