// Archives, profile memory and the search in it, asked by frames.
#include <gtest/gtest.h>

#include "simulator/MeterTypes.h"
#include "tests/simulator/OneMeter.h"

namespace ostrel::test {
namespace {

using sim::Energies;
using sim::MeterTime;

Energies EnergiesOf(const Bytes& data) {
  Energies energies{};
  for (std::size_t i = 0; i < 16 && i < data.size(); ++i) energies[i / 4] = energies[i / 4] << 8 | data[i];
  return energies;
}

Energies operator+(Energies left, const Energies& right) {
  for (std::size_t kind = 0; kind < 4; ++kind) left[kind] += right[kind];
  return left;
}

Energies operator-(Energies left, const Energies& right) {
  for (std::size_t kind = 0; kind < 4; ++kind) left[kind] -= right[kind];
  return left;
}

class History : public OneMeter {
 public:
  explicit History(const std::string& spec) : OneMeter(spec + ":searchpolls=0") { Open(); }

  Energies Read(const std::string& request) {
    const Bytes answer = Hex(Ask(request));
    EXPECT_EQ(answer.size(), 16U) << request;
    return EnergiesOf(answer);
  }

  /// State and header address for hour, day, month and year in hex.
  std::string Search(const std::string& hour, const std::string& start = "FF FF") {
    EXPECT_EQ(Ask("03 28 00 " + start + " " + hour + " 00 1E"), "00") << hour;
    const std::string result = Ask("08 18 00");
    EXPECT_EQ(result.substr(2, 7), " 00 00 ") << hour;
    return result.substr(0, 2) + result.substr(8);
  }

  std::string Memory(std::uint32_t address, const std::string& count = "08") {
    return Ask("06 03 " + ToHex(Bytes{static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)}) + " " +
               count);
  }

  /// All half-hours of a day from the hour 00 that is found for it; `hours` counts its blocks.
  Energies SumOfDay(const std::string& date, int& hours) {
    const Bytes found = Hex(Search("00 " + date));
    std::uint32_t address = found[1] * 256U + found[2];
    Energies sum{};
    for (hours = 0; Memory(address).substr(3, 8) == date; ++hours, address += 24) {
      const Bytes records = Hex(Memory(address + 8, "10"));
      for (std::size_t i = 0; i < 16; i += 2) sum[i / 2 % 4] += (records[i] & 0x7FU) * 256U + records[i + 1];
    }
    return sum;
  }
};

// Put into service at a midnight, half-hours: the hour h after it begins at 24 h. The ring of 8192 cells has 65536 bytes.
TEST(ProfileMemory, HoursLieWhereTheRingHasThem) {
  const std::string jan1 = "1:1:installed=2026-01-01T00:00:00:at=2026-04-25T00:10:00";
  const std::string cut =
      "1:1:installed=2026-11-20T00:00:00:at=2026-11-20T15:10:00:powercut=2026-11-20T10:10:00/2026-11-20T13:20:00";
  const std::string autumn = "1:1:dst=1:installed=2026-10-24T00:00:00:at=2026-10-25T05:10:00";
  const std::string spring = "1:1:dst=1:installed=2026-03-28T00:00:00:at=2026-03-29T05:10:00";
  const struct {
    std::string spec, hour, start, result;
  } rows[] = {
      {jan1, "18 24 04 26", "FF FF", "00 FF F0"},  // 2730 * 24
      {jan1, "19 24 04 26", "12 34", "00 00 08"},  // 2731 * 24 - 65536
      {jan1, "00 25 04 26", "FF FF", "00 00 80"},  // the running hour, number 2736
      {jan1, "01 25 04 26", "FF FF", "02 FF FF"},
      {jan1, "07 01 01 26", "FF FF", "00 00 A8"},  // the oldest of 2730 hours
      {jan1, "06 01 01 26", "FF FF", "02 FF FF"},
      {jan1, "18 24 04 25", "FF FF", "02 FF FF"},
      {"1:3:installed=2026-01-01T00:00:00:at=2026-02-26T22:10:00", "21 26 02 26", "FF FF", "00 7F F8"},  // of 32768 bytes
      {cut, "10 20 11 26", "FF FF", "00 00 F0"},
      {cut, "11 20 11 26", "FF FF", "02 FF FF"},
      {cut, "12 20 11 26", "00 F0", "02 FF FF"},
      {cut, "13 20 11 26", "00 F0", "00 01 08"},
      {autumn, "01 25 10 26", "FF FF", "00 02 58"},
      {autumn, "02 25 10 26", "02 58", "00 02 70"},  // in summer time
      {autumn, "02 25 10 26", "02 78", "00 02 88"},  // and in winter time
      {autumn, "03 25 10 26", "FF FF", "00 02 A0"},
      {spring, "01 29 03 26", "FF FF", "00 02 58"},
      {spring, "02 29 03 26", "FF FF", "02 FF FF"},
      {spring, "03 29 03 26", "FF FF", "00 02 70"},
      {"1:1", "00 01 01 24", "FF FF", "02 FF FF"},
  };
  for (const auto& row : rows) {
    History one(row.spec);
    EXPECT_EQ(one.Search(row.hour, row.start), row.result) << row.spec << " " << row.hour;
  }
}

TEST(ProfileMemory, ReadsGoRoundTheRing) {
  History ring("1:1:installed=2026-01-01T00:00:00:at=2026-04-25T00:10:00");
  EXPECT_EQ(ring.Memory(0xFFF8, "10"), ring.Memory(0xFFF8) + " " + ring.Memory(0x0000));
  History small("1:3:installed=2026-01-01T00:00:00:at=2026-02-26T22:10:00");
  EXPECT_EQ(small.Memory(0x8000), small.Memory(0x0000));
  EXPECT_NE(small.Memory(0x0000), "FF FF FF FF FF FF FF FF");
}

// Whatever is added up, no pulse is lost: through power cuts, on days of 23 and 25 hours, in the first year of a meter.
TEST(Archives, AgreeWithEachOtherPulseByPulse) {
  struct Case {
    std::string keys, date;
    int hours;
  };
  const Case cases[] = {
      {":at=2026-11-20T10:40:00", "19 11 26", 24},
      {":dst=1:at=2026-10-26T00:10:00", "25 10 26", 25},
      {":dst=1:at=2026-03-30T00:10:00", "29 03 26", 23},
      {":at=2026-11-20T10:40:00:powercut=2026-11-19T10:10:00/2026-11-19T13:20:00", "19 11 26", 22},
      {":at=2026-11-20T10:40:00:installed=2026-11-12T08:00:00", "19 11 26", 24},
  };
  for (const sim::MeterType& type : sim::AllMeterTypes()) {
    for (const Case& each : cases) {
      SCOPED_TRACE(std::to_string(type.id) + each.keys);
      History one("1:" + std::to_string(type.id) + each.keys);
      int hours = 0;
      const Energies yesterday = one.Read("05 50 00");
      EXPECT_EQ(one.SumOfDay(each.date, hours), yesterday);
      EXPECT_EQ(hours, each.hours);
      EXPECT_NE(yesterday[0], 0U);
      EXPECT_EQ(one.Read("0A 84 00 00 0F 00") - one.Read("0A 85 00 00 0F 00"), yesterday);
      EXPECT_EQ(one.Read("05 00 03") - one.Read("0A 84 00 03 0F 00"), one.Read("05 40 03"));
      EXPECT_EQ(one.Read("0A 83 03 02 0F 00") - one.Read("0A 83 02 02 0F 00"), one.Read("05 32 02"));
      EXPECT_EQ(one.Read("0A 81 00 01 0F 00") - one.Read("0A 82 00 01 0F 00"), one.Read("05 20 01"));
      EXPECT_EQ(one.Read("05 00 00") - one.Read("0A 81 00 00 0F 00"), one.Read("05 10 00"));
    }
  }
}

TEST(Archives, ReachAsFarAsTheTypeKeepsThem) {
  History days("1:8:at=2026-11-01T00:10:00");
  Energies sum{};
  for (std::uint8_t day = 1; day <= 31; ++day) sum = sum + days.Read("0A 06 " + ToHex(Bytes{day}) + " 00 0F 00");
  EXPECT_EQ(sum, days.Read("05 3A 00"));  // October
  EXPECT_EQ(days.Read("0A 83 01 00 0F 00") - days.Read("0A 83 0D 00 0F 00"), days.Read("05 3D 00") + days.Read("05 3C 00"));
  History before("1:8:at=2026-10-31T23:50:00");
  EXPECT_NE(before.Read("0A 06 1F 00 0F 00"), days.Read("0A 06 1F 00 0F 00"));  // the 31st of August, until October's is over
  EXPECT_EQ(before.Read("0A 06 1E 00 0F 00"), days.Read("0A 06 1E 00 0F 00"));
  History young("1:6:at=2026-11-20T10:40:00:installed=2026-11-12T08:00:00");
  for (const char* request :
       {"05 20 00", "05 3A 00", "05 3D 00", "0A 83 0B 00 0F 00", "0A 81 00 00 0F 00", "0A 82 00 00 0F 00"}) {
    EXPECT_EQ(young.Read(request), Energies{}) << request;
  }
}

}  // namespace
}  // namespace ostrel::test
