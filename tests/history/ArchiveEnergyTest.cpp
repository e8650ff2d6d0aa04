// Energy archives: the request for each class, type and time, and the value in the answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/history/HistoryChannel.h"
#include "tests/support/TableFile.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

/// A+, A-, R+, R- of every archive: 2, 4, 6 and 8 kWh of half impulses.
constexpr const char* kEnergies = "00 00 4E 20 00 00 9C 40 00 00 EA 60 00 01 38 80";

/// With these energies in every archive.
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
    const Reading reading = history.Read(Numbers(row[1])[0], row[2]);
    EXPECT_EQ(1U, reading.result);
    Texts requests = history.Take();
    std::erase_if(requests, [](const std::string& text) { return text == "08 02" || text == "04 00"; });
    EXPECT_EQ(row[4].empty() ? Texts() : Texts{row[4]}, requests);
    EXPECT_EQ(row[4].empty() ? kUntouchedWord : kGood, reading.value.Quality);
  }
}

TEST(ArchiveEnergy, EveryTagTakesItsOwnEnergy) {
  Archives history(1);
  for (const std::uint32_t first : {40000U, 40036U, 40072U, 40120U, 40156U, 40192U}) {
    for (std::uint32_t tag = first; tag < first + 36; ++tag) {
      const Reading reading = history.Read(tag, "2026-01-01");
      const double expected = 2.0 * ((tag - first) / 9 + 1);
      EXPECT_EQ(kGood, reading.value.Quality) << tag;
      EXPECT_EQ(expected, first < 40120 ? double{reading.value.Value.fltVal} : reading.value.Value.dblVal) << tag;
      EXPECT_EQ(0xA5A5, reading.value.Value.vt) << "the type word is the host's";
      std::uint32_t behind = 0;
      std::memcpy(&behind, reinterpret_cast<const std::byte*>(&reading.value.Value) + 12, sizeof behind);
      EXPECT_EQ(first < 40120, behind == kUntouchedWord) << "a float touches four bytes only";
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
    Archives history(6, std::string(row.raw) + "00 00 00 00 00 00 00 00 00 00 00 00");
    history.Entry().MeterConstant = row.constant;
    history.Answer("08 02", std::string(row.coefficients) + "00 00 00 00 00 00");
    EXPECT_DOUBLE_EQ(row.value, history.Read(40120, "2026-11-22").value.Value.dblVal) << row.raw << " " << row.constant;
    EXPECT_FLOAT_EQ(static_cast<float>(row.value), history.Read(40000, "2026-11-22").value.Value.fltVal) << row.raw;
  }
  for (const std::uint32_t constant : {0U, 0x80000000U}) {
    Archives history(1);
    history.Entry().MeterConstant = constant;
    const Reading reading = history.Read(40120, "2026-11-22");
    EXPECT_EQ(1U, reading.result);
    EXPECT_EQ(kBad, reading.value.Quality) << "no division by zero";
    EXPECT_EQ(0xA5A5A5A5A5A5A5A5, reading.value.Value.ullVal);
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
  HistoryItem item{.hostWord0_ = 0, .DeviceIndex = 0, .hostWord8_ = 0, .MeterType = 1, .TagId = 40000, .Tariff = 0};
  HistoryValue value{};
  value.Quality = kUntouchedWord;
  const FILETIME unreadable = {0xFFFFFFFF, 0xFFFFFFFF};
  EXPECT_EQ(1U, history.Protocol().ReadHistoryValue(1, &item, &unreadable, &value));
  // Nor is anything asked or written for a meter or a tag that is not there.
  const FILETIME time = TimeAt("2026-11-22");
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, nullptr, &time, &value));
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, &time, nullptr));
  EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, nullptr, &value));
  for (const std::uint32_t tag : {0U, 39999U, 40228U}) {
    item.TagId = tag;
    EXPECT_EQ(1U, history.Protocol().ReadHistoryValue(1, &item, &time, &value)) << tag;
  }
  item.DeviceIndex = 1;
  for (const std::uint32_t tag : {40000U, 40108U, 40192U}) {
    item.TagId = tag;
    EXPECT_EQ(0U, history.Protocol().ReadHistoryValue(1, &item, &time, &value)) << tag;
  }
  EXPECT_EQ(kUntouchedWord, value.Quality);
  EXPECT_TRUE(history.Take().empty());
}

}  // namespace
}  // namespace ostrel::test
