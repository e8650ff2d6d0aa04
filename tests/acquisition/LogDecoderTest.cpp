// Event-log tags: which logs have two stamps, which one, and what stands in the place of a missing one.
#include <gtest/gtest.h>

#include "tests/acquisition/DecoderFixture.h"

namespace ostrel::test {
namespace {

using LogDecoderTest = DecoderTest;

constexpr char kLogRecord[] = "01 30 15 08 03 19 11 24 59 59 23 07 31 12 25 E2 4B";

TEST_F(LogDecoderTest, LogRecords) {
  constexpr char kOneStamp[] = "01 30 15 08 03 19 11 24 8F 08";
  const struct {
    std::uint8_t log;
    const char* answer;
    const char* texts[4];  // P 1 date and time, P 2 date and time
    std::uint16_t qualities[2];
  } rows[] = {
      {1, kLogRecord, {"19.11.24 ", "08:15:30", "31.12.25 ", "23:59:59"}, {192, 192}},
      {2, kLogRecord, {"19.11.24 ", "08:15:30", "31.12.25 ", "23:59:59"}, {192, 192}},
      {3, kLogRecord, {"19.11.24 ", "08:15:30", "", ""}, {192, 0}},
      {6, kLogRecord, {"19.11.24 ", "08:15:30", "", ""}, {192, 0}},
      {7, kLogRecord, {"19.11.24 ", "08:15:30", "31.12.25 ", "23:59:59"}, {192, 192}},
      {26, kLogRecord, {"19.11.24 ", "08:15:30", "31.12.25 ", "23:59:59"}, {192, 192}},
      {27, kLogRecord, {"", "", "", ""}, {12, 12}},
      {255, kLogRecord, {"", "", "", ""}, {12, 12}},
      {1, kOneStamp, {"19.11.24 ", "08:15:30", "00.00.00 ", "00:08:8f"}, {192, 192}},
      {1, kStatus1, {"", "", "", ""}, {0, 0}},
      {4, kStatus1, {"", "", "", ""}, {0, 0}},
      {27, kStatus1, {"", "", "", ""}, {12, 12}},
  };
  for (const auto& row : rows) {
    Entry().LogRequest = row.log;
    for (std::uint32_t i = 0; i < 4; ++i) {
      SCOPED_TRACE(std::to_string(row.log) + " " + row.answer + " tag " + std::to_string(i));
      const CDeviceTag& tag = Read(107 + i, row.answer);
      EXPECT_EQ(row.texts[i], Text(tag));
      EXPECT_EQ(row.qualities[i / 2], tag.Quality);
      EXPECT_EQ(1U, tag.Updated);
    }
  }
}

TEST_F(LogDecoderTest, NoLogAskedForIsAnEmptyGoodText) {
  Entry().LogCacheLength = 17;
  CDeviceTag& tag = *channel_.AddTag(meter_, 182);
  EXPECT_EQ(1U, ReadTag(channel_.Protocol(), &tag, Send::Request, meter_));
  EXPECT_EQ("", Text(tag));
  EXPECT_EQ(kQualityGood, tag.Quality);
  EXPECT_EQ(0U, channel_.Line().RequestCount());
}

}  // namespace
}  // namespace ostrel::test
