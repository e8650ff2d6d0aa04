// Profile memory and the search in it, asked by frames.
#include <gtest/gtest.h>

#include "tests/simulator/OneMeter.h"

namespace ostrel::test {
namespace {

class History : public OneMeter {
 public:
  explicit History(const std::string& spec) : OneMeter(spec + ":searchpolls=0") { Open(); }

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

}  // namespace
}  // namespace ostrel::test
