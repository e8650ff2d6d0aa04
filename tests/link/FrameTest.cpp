// The frame codec: the check, and the one reason for which an answer is taken or not.
#include <gtest/gtest.h>

#include "Protocol/link/Frame.h"
#include "tests/support/Hex.h"

namespace ostrel::test {
namespace {

TEST(Frame, CheckIsTheStandardsOneLowByteFirst) {
  Bytes frame = Hex("31 32 33 34 35 36 37 38 39 00 00");
  EXPECT_EQ(0x4B37, ComputeCrc16(frame.data(), 9));
  EXPECT_EQ(0xFFFF, ComputeCrc16(frame.data(), 0));
  EXPECT_EQ(0, ComputeCrc16(frame.data(), -1));
  EXPECT_EQ(0, ComputeCrc16(nullptr, 1));
  AppendCrc(frame.data(), 11);
  EXPECT_EQ("31 32 33 34 35 36 37 38 39 37 4B", ToHex(frame));
  EXPECT_TRUE(CheckFrameCrc(frame.data(), 9, 0x4B37));
  EXPECT_FALSE(CheckFrameCrc(frame.data(), 9, 0x374B));
  for (const std::int32_t tooShort : {-1, 0, 1}) AppendCrc(frame.data(), tooShort);
  EXPECT_EQ(0x31, frame[0]);
  AppendCrc(frame.data(), 2);
  EXPECT_EQ("FF FF", ToHex(std::span(frame).first(2)));
}

Bytes Long(std::size_t total) {
  Bytes bytes(total - 2, 0x55);
  return WithCheck(bytes);
}

Bytes Spoiled(Bytes bytes) {
  bytes[bytes.size() / 2] ^= 0x10U;
  return bytes;
}

TEST(Frame, EveryAnswerHasItsReason) {
  const struct {
    const char* name;
    Bytes answer;
    std::uint32_t expectedLength;
    AnswerCheck check;
  } rows[] = {
      {"nothing", {}, 4, kAnswerBad},
      {"one byte", Hex("01"), 4, kAnswerIncomplete},
      {"three bytes", Hex("01 0F 00"), 4, kAnswerIncomplete},
      {"four bytes, wrong check", Hex("01 0F 00 00"), 4, kAnswerIncomplete},
      {"status ok by hand", Hex("01 00 00 20"), 4, kAnswerValid},
      {"status ok, any length", Frame("01 00"), 0, kAnswerValid},
      {"status 1, more expected", Frame("01 01"), 20, kAnswerBad},
      {"status 5 is left to the engine", Frame("01 05"), 4, kAnswerValid},
      {"status 5, more expected", Frame("01 05"), 19, kAnswerBad},
      {"refused", Frame("01 0F"), 20, kAnswerRefused},
      {"refused where four are expected", Frame("01 0F"), 4, kAnswerRefused},
      {"refused, any length", Frame("01 0F"), 0, kAnswerRefused},
      {"0F in a longer answer is data", Frame("01 0F 00"), 5, kAnswerValid},
      {"another meter's address", Frame("02 00"), 4, kAnswerValid},
      {"expected length, one bit wrong", Spoiled(Long(20)), 20, kAnswerIncomplete},
      {"wrong length", Long(19), 20, kAnswerBad},
      {"longest", Long(300), 0, kAnswerValid},
      {"too long", Long(301), 0, kAnswerBad},
      {"too long, wrong check", Spoiled(Long(301)), 0, kAnswerIncomplete},
  };
  for (const auto& row : rows) {
    const auto received = static_cast<std::uint32_t>(row.answer.size());
    EXPECT_EQ(row.check, ValidateAnswer(row.answer.data(), received, 1, row.expectedLength)) << row.name;
  }
}

}  // namespace
}  // namespace ostrel::test
