#include <gtest/gtest.h>

#include "tests/simulator/OneMeter.h"

namespace ostrel::test {
namespace {

std::string Byte(unsigned value) { return ToHex(Bytes{static_cast<std::uint8_t>(value)}); }

TEST(Answers, CarryWhatTheMeterWasGiven) {
  const struct {
    std::string_view spec, request, answer;
  } rows[] = {
      {"1:1", "00", "00"},
      {"1:1:serial=12345678", "08 00", "00 BC 61 4E 03 02 23"},  // the date follows from the serial number
      {"1:1", "08 12", "01 40 13"},
      {"1:12", "08 12", "04 40 C1"},
      {"1:1:ku=100:ki=10", "08 02", "00 64 00 0A 00 00 00 00 00 00"},
      {"200:1", "08 05", "00 C8"},
      {"1:1", "08 06", "00 1E"},
      {"1:1", "08 09", "00 00"},
      {"1:1:location=ПС-1", "08 0B", "CF D1 2D 31 00 00 00 00 00 00 00 00 00 00 00 00"},
      {"1:1:at=2026-11-22T10:08:07", "04 00", "07 08 10 07 22 11 26 01"},
      {"1:1:at=2026-07-01T23:59:59", "04 00", "59 59 23 03 01 07 26 01"},
      {"1:1:dst=1:at=2026-07-01T23:59:59", "04 00", "59 59 23 03 01 07 26 00"},
      {"1:8:period=5:period2=15", "08 06 01", "00 0F"},
      {"1:8", "08 06 02", "00 3C"},
      {"1:1", "08 06 02", "00 00"},
      {"1:1", "08 20 00 00", "00 01"},
      {"1:1", "08 20 08 00", "00 01"},
      {"1:1", "08 20 04 00", "00 0F 73 14"},  // 1000000 + 12500
      {"1:1", "08 20 04 34", "00 3D FD 24"},  // 4000000 + 5 * 12500
      {"1:1", "08 20 09 03", "0C 35"},        // 3125
      {"1:1:log_events=2", "09 04 02", "00 00 00 00 00 00 00"},
  };
  for (const auto& row : rows) {
    OneMeter one(row.spec);
    one.Open();
    EXPECT_EQ(one.Ask(row.request), row.answer) << row.spec << ": " << row.request;
  }
}

TEST(Answers, RefuseWhatNoMeterKnows) {
  OneMeter one("1:1:unknown=0811A1");
  one.Open();
  for (const char* request :
       {"0F 00",    "08 06 03", "04 01",       "05 00 09",    "05 60 00",    "05 3D 00",    "05 00",    "08 77",
        "08 12 00", "08 11",    "08 11 10",    "08 11 0C",    "08 11 19",    "08 11 20",    "08 11 41", "08 11 80",
        "08 11 F1", "08 11 A1", "08 20 04 05", "08 20 04 40", "08 20 09 04", "08 20 01 00", "09 00 00", "09 1B 00",
        "09 01 14", "03 77 00", "03 1B 00",    "03 2F 02",    "00 00"}) {
    EXPECT_EQ(one.Ask(request), "01") << request;
  }
  EXPECT_EQ(one.Ask("08 11 A2").size(), 8U);
  OneMeter other("1:6");
  other.Open();
  EXPECT_EQ(Hex(other.Ask("05 3D 00")).size(), 16U);
}

TEST(Answers, OnlyGoToFramesForThisMeterWithARightCheck) {
  sim::Meter meter(Spec("1:1"), 1);
  EXPECT_EQ(meter.Answer(Frame("01 00"), kNoon), Frame("01 00"));
  Bytes spoiled = Frame("01 00");
  spoiled[2] ^= 1;
  EXPECT_TRUE(meter.Answer(spoiled, kNoon).empty());
  EXPECT_TRUE(meter.Answer(Frame("02 00"), kNoon).empty());
  EXPECT_TRUE(meter.Answer(Frame("00 00"), kNoon).empty());
  EXPECT_TRUE(meter.Answer(Hex("01 00"), kNoon).empty());
  EXPECT_TRUE(meter.Answer({}, kNoon).empty());
  EXPECT_EQ(OneMeter("1:1:silent=1").Ask("00"), "");
}

TEST(Answers, ShowTheNewestEventsFirst) {
  OneMeter one("1:8:at=2026-11-22T10:00:00");
  one.Open();
  std::string before = "26 11 22 10 00 00";
  for (unsigned record = 0; record < 20; ++record) {
    const Bytes stamps = Hex(one.Ask("09 01 " + Byte(record)));
    const auto sortable = [&](std::size_t at) {
      return ToHex(Bytes{stamps[at + 6], stamps[at + 5], stamps[at + 4], stamps[at + 2], stamps[at + 1], stamps[at]});
    };
    EXPECT_LT(sortable(0), sortable(7)) << record;
    EXPECT_LT(sortable(7), before) << record;
    before = sortable(0);
  }
  EXPECT_NE(one.Ask("09 01 00"), one.Ask("09 02 00"));
}

}  // namespace
}  // namespace ostrel::test
