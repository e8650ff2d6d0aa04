// What meters answer: rows of "request = answer", without addresses and checks. "open" opens the channel at level 1,
// "+1000" lets so many milliseconds pass, "-1000" sets the time back. Answers are regular expressions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/OneMeter.h"
#include "tests/support/TimeZone.h"

namespace ostrel::test {
namespace {

void Say(OneMeter& one, std::string_view turn, std::string_view row) {
  const std::size_t sign = turn.find(" = ");
  if (turn == "open") return one.Open();
  if (sign == std::string_view::npos) {
    one.now += std::stoll(std::string(turn));
    return;
  }
  EXPECT_THAT(one.Ask(turn.substr(0, sign)), testing::MatchesRegex(std::string(turn.substr(sign + 3)))) << row << ": " << turn;
}

struct Row {
  const char* meter;
  std::string_view dialogue;
};

template <std::size_t Count>
void Converse(const Row (&rows)[Count]) {
  for (const Row& row : rows) {
    OneMeter one(row.meter);
    for (std::size_t start = 0; start <= row.dialogue.size();) {
      const std::size_t end = std::min(row.dialogue.find("; ", start), row.dialogue.size());
      Say(one, row.dialogue.substr(start, end - start), row.meter);
      start = end + 2;
    }
  }
}

TEST(Dialogues, AnswersCarryWhatTheMeterWasGiven) {
  Converse({
      {"1:1:serial=12345678", "open; 08 00 = 00 BC 61 4E 03 02 23"},  // the date follows from the serial number
      {"1:1", "open; 08 12 = 01 40 13; 08 06 = 00 1E; 08 09 = 00 00; 08 06 02 = 00 00"},
      {"1:12", "open; 08 12 = 04 40 C1"},
      {"1:8:variant=00408B", "open; 08 12 = 00 40 8B"},
      {"1:1:ku=100:ki=10", "open; 08 02 = 00 64 00 0A 00 00 00 00 00 00"},
      {"200:1", "open; 08 05 = 00 C8"},
      {"1:1:location=ПС-1", "open; 08 0B = CF D1 2D 31 00 00 00 00 00 00 00 00 00 00 00 00"},
      {"1:1:at=2026-11-22T10:08:07", "open; 04 00 = 07 08 10 07 22 11 26 01"},
      {"1:1:at=2026-07-01T23:59:59", "open; 04 00 = 59 59 23 03 01 07 26 01"},
      {"1:1:dst=1:at=2026-07-01T23:59:59", "open; 04 00 = 59 59 23 03 01 07 26 00"},
      {"1:8:period=5:period2=15", "open; 08 06 01 = 00 0F; 08 06 02 = 00 3C"},
      {"1:1", "open; 08 20 00 00 = 00 01; 08 20 08 00 = 00 01; 08 20 04 00 = 00 0F 73 14"},  // 1000000 + 12500
      {"1:1", "open; 08 20 04 34 = 00 3D FD 24; 08 20 09 03 = 0C 35"},                       // 4000000 + 5 * 12500; 3125
      {"1:1:log_events=2", "open; 09 04 02 = 00 00 00 00 00 00 00"},
      {"1:1:busy=3:refuse=4", "open; 08 05 = 00 01; 08 05 = 00 01; 08 05 = 06; 08 05 = 0F; 08 05 = 00 01; 08 05 = 06"},
      {"1:1:silent=1", "00 = "},
      {"1:1:powercut=2026-11-20T00:00:00/2026-11-20T11:00:00:freeze=1", "00 = "},
  });
}

TEST(Dialogues, TheChannelOpensByPasswordAndClosesAfterAPause) {
  Converse({
      {"1:1",
       "00 = 00; 08 05 = 05; 01 31 31 31 31 31 31 = 03; 08 05 = 05; 01 30 30 30 30 30 = 01; open; 08 05 = 00 01; "
       "01 31 31 31 31 31 31 = 03; 08 05 = 00 01"},  // a wrong password leaves an open channel as it is
      {"1:1:password1=ab", "01 61 62 00 00 00 01 = 03; 01 61 62 00 00 00 00 = 00"},
      {"1:1", "open; +240000; 08 05 = 00 01; +240000; 08 05 = 00 01; +240001; 08 05 = 05; -240001; 08 05 = 05"},
      {"1:1:channel_timeout_s=10", "open; +10000; 08 05 = 00 01; +10001; 08 05 = 05"},
      {"1:1:closed=each", "08 05 = 05; open; 08 05 = 00 01; 08 05 = 05; open; 08 05 = 00 01"},
      {"1:1:password2=secret",
       "open; 03 1B 00 64 = 03; 08 02 = 00 01.*; 01 73 65 63 72 65 74 = 00; 03 1B 00 64 = 00; "
       "08 02 = 00 64.*; open; 03 1B 00 64 = 03"},                   // level 1 gives level 2 up
      {"1:1", "open; 03 1B 00 64 = 00; 01 00 00 00 00 00 00 = 03"},  // no second level, no empty password
  });
}

TEST(Dialogues, RefusedWritesChangeNothing) {
  Converse({
      {"1:1",
       "open; 03 18 02 = 01; 08 09 = 00 00; 03 2F 07 00 00 00 00 1A = 01; 03 2F 07 00 00 00 00 00 = 01; "
       "08 20 08 00 = 00 01; 03 2F 04 05 00 00 27 10 = 01; 08 20 04 00 = 00 0F 73 14; "
       "03 2F 08 02 00 01 00 00 = 01; 08 20 09 02 = 0E A6; 03 2F 08 04 00 00 00 01 = 01; 08 20 09 03 = 0C 35"},
      {"1:2", "open; 03 07 0A = 00; 03 1B 00 02 = 01; 08 02 = 00 01 00 01.*"},
  });
}

TEST(Dialogues, TheClockIsCorrectedByTwoMinutesOnceADayAndSetToAnyRealDate) {
  const TimeZone utc("UTC");
  Converse({
      {"1:1",
       "open; 03 0D 60 00 12 = 01; 03 0D 0A 00 12 = 01; 03 0D 10 02 12 = 04; 03 0D 00 00 00 = 04; "
       "04 00 = 00 00 12 07 22 11 26 01; 03 0D 00 02 12 = 00; 04 00 = 00 02 12 07 22 11 26 01; 03 0D 00 02 12 = 04; "
       "+86400000; open; 03 0D 00 00 12 = 00; 04 00 = 00 00 12 01 23 11 26 01"},
      {"1:1", "open; 03 0D 00 58 11 = 00; 04 00 = 00 58 11 07 22 11 26 01"},
      {"1:1:offset_s=43230", "open; 03 0D 30 59 23 = 00; 04 00 = 30 59 23 07 22 11 26 01"},  // back from the next day's 00:00:30
      {"1:1",
       "open; 03 0C 42 07 14 07 08 03 26 01 = 00; +20000; 04 00 = 02 08 14 07 08 03 26 01; "
       "03 0C 42 07 14 06 08 03 26 01 = 01; 03 0C 42 07 14 01 30 02 26 01 = 01; 03 0C 42 07 24 07 08 03 26 01 = 01; "
       "03 0C 42 07 14 07 08 13 26 01 = 01; 03 0C 42 07 14 07 08 03 2F 01 = 01; 04 00 = 02 08 14 07 08 03 26 01"},
      {"1:1:offset_s=-600:drift_ppm=1000",
       "open; 04 00 = 00 50 11 07 22 11 26 01; +100000; 04 00 = 40 51 11 07 22 11 26 01; "
       "+900000; open; 04 00 = 41 06 12 07 22 11 26 01"},  // 100.1 s, 1001 s
  });
}

TEST(Dialogues, SeasonsComeUnlessInhibited) {
  const TimeZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
  constexpr std::int64_t kBeforeChange = 1792889999000;  // 2026-10-25 00:59:59 UTC, 02:59:59 summer time
  for (const auto& [spec, inhibited] : {std::pair{"1:1", false}, {"1:1", true}, {"1:1:dst=1", false}, {"1:1:dst=1", true}}) {
    OneMeter one(spec);
    one.now = kBeforeChange;
    one.Open();
    EXPECT_EQ(one.Ask(inhibited ? "03 18 01" : "03 18 00"), "00");
    Say(one, "04 00 = 59 59 02 07 25 10 26.*", spec);
    one.now += 1000;
    Say(one, inhibited ? "04 00 = 00 00 03 07 25 10 26.*" : "04 00 = 00 00 02 07 25 10 26.*", spec);
  }
}

TEST(Dialogues, SearchesRunAsLongAsToldAndNameTheirProfile) {
  Converse({{"1:8:password2=abc:searchpolls=2:installed=2026-11-20T00:00:00:at=2026-11-20T15:10:00",
             "open; 08 18 00 = 02 00 00 FF FF; 03 28 01 FF FF 03 20 11 26 00 03 = 00; 08 18 00 = 11 00 00 FF FF; "
             "08 18 00 = 11 00 00 FF FF; 08 18 00 = 10 00 00 01 F8; 08 18 00 = 10 00 00 01 F8; "
             "03 28 02 FF FF 03 20 11 26 00 3C = 00; 08 18 00 = 21 00 00 FF FF; 08 18 00 = 21 00 00 FF FF; "
             "08 18 00 = 20 00 00 00 30"}});
}

// The status of a record has its highest bit while the interval runs or when it lacked power.
TEST(Dialogues, ProfileMemoryHoldsHeadersAndRecords) {
  Converse({
      {"1:1:installed=2026-01-01T00:00:00:at=2026-04-25T00:10:00",
       "open; 06 03 FF F0 08 = 18 24 04 26 01 1E 00 00; 06 03 00 80 08 = 00 25 04 26 01 1E 00 00; 06 03 00 88 08 = [89A-F].*; "
       "06 03 00 90 08 = (FF ?){8}; 06 03 00 98 08 = [0-7].*"},  // not begun; of an hour whose header is overwritten
      {"1:1:installed=2026-11-20T00:00:00:at=2026-11-20T15:30:00:powercut=2026-11-20T10:10:00/2026-11-20T13:20:00",
       "open; 06 03 00 F8 08 = [89A-F]. 0[^0].*; 06 03 01 00 08 = (80 00 ?){4}; 06 03 01 10 08 = [89A-F].*; "
       "06 03 01 18 08 = [0-7].*; 06 03 01 40 08 = [0-7].*; 06 03 01 48 08 = (FF ?){8}; 06 03 01 50 08 = (FF ?){8}"},
      {"1:1:dst=1:installed=2026-10-24T00:00:00:at=2026-10-25T05:10:00",
       "open; 06 03 02 70 08 = 02 25 10 26 00 1E 00 00; 06 03 02 88 08 = 02 25 10 26 01 1E 00 00"},
  });
}

TEST(Dialogues, WhatNoMeterKnowsOrKeepsIsRefused) {
  OneMeter one("1:1:unknown=0811A1:freeze=1");
  one.Open();
  for (const char* request :
       {"0F 00", "08 06 03", "04 01", "05 00 09", "05 60 00", "05 3D 00", "05 00", "08 77", "08 12 00", "08 11", "08 11 10",
        "08 11 0C", "08 11 19", "08 11 20", "08 11 41", "08 11 80", "08 11 F1", "08 11 A1", "08 20 04 05", "08 20 04 40",
        "08 20 09 04", "08 20 01 00", "09 00 00", "09 1B 00", "09 01 14", "03 77 00", "03 1B 00", "03 2F 02", "00 00",
        // Archives: tariff, place, kinds, archive and month; day; memory and count; selector.
        "0A 84 00 09 0F 00", "0A 84 01 00 0F 00", "0A 84 00 00 07 00", "0A 86 00 00 0F 00", "0A 83 0D 00 0F 00",
        "0A 06 00 00 0F 00", "0A 06 20 00 0F 00", "06 04 00 00 08", "06 09 00 00 08", "06 03 00 00", "08 18 01",
        // Searches: hour, day, year, period, flag, profile, length.
        "03 28 00 FF FF 24 20 11 26 00 1E", "03 28 00 FF FF 10 31 11 26 00 1E", "03 28 00 FF FF 10 20 11 2A 00 1E",
        "03 28 00 FF FF 10 20 11 26 00 3C", "03 28 00 FF FF 10 20 11 26 01 1E", "03 28 02 FF FF 10 20 11 26 00 3C",
        "03 28 00 FF FF 10 20 11 26 00 1E 00"}) {
    EXPECT_EQ(one.Ask(request), "01") << request;
  }
  EXPECT_EQ(one.Ask("08 11 A2").size(), 8U);
  OneMeter other("1:6");  // has a thirteenth month, and no days
  other.Open();
  EXPECT_EQ(Hex(other.Ask("05 3D 00")).size(), 16U);
  EXPECT_EQ(other.Ask("0A 06 01 00 0F 00"), "01");
}

TEST(Answers, OnlyGoToFramesForThisMeterWithARightCheck) {
  sim::Meter meter(Spec("1:1"), 1);
  EXPECT_EQ(meter.Answer(Frame("01 00"), kNoon), Frame("01 00"));
  Bytes spoiled = Frame("01 00");
  spoiled[2] ^= 1;
  for (const Bytes& request : {spoiled, Frame("02 00"), Frame("00 00"), Hex("01 00"), Bytes()}) {
    EXPECT_TRUE(meter.Answer(request, kNoon).empty()) << ToHex(request);
  }
}

TEST(Answers, ShowTheNewestEventsFirst) {
  OneMeter one("1:8:at=2026-11-22T10:00:00");
  one.Open();
  std::string before = "26 11 22 10 00 00";
  for (std::uint8_t record = 0; record < 20; ++record) {
    const Bytes stamps = Hex(one.Ask("09 01 " + ToHex(Bytes{record})));
    const auto sortable = [&](std::size_t at) {
      return ToHex(Bytes{stamps[at + 6], stamps[at + 5], stamps[at + 4], stamps[at + 2], stamps[at + 1], stamps[at]});
    };
    EXPECT_LT(sortable(0), sortable(7)) << int{record};
    EXPECT_LT(sortable(7), before) << int{record};
    before = sortable(0);
  }
  EXPECT_NE(one.Ask("09 01 00"), one.Ask("09 02 00"));
}

}  // namespace
}  // namespace ostrel::test
