// The frame codec: the check, and the one reason for which an answer is taken or not.
#include <gtest/gtest.h>

#include "Protocol/link/Frame.h"
#include "tests/support/Hex.h"
#include "tests/support/TableFile.h"

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

Bytes Answer(const std::string& field) {
  if (field.starts_with('!')) return Hex(field.substr(1));
  if (!field.starts_with('x')) return Frame(field);
  Bytes bytes = WithCheck(Bytes(std::stoul(field.substr(1)) - 2, 0x55));
  if (field.ends_with('^')) bytes[bytes.size() / 2] ^= 0x10U;
  return bytes;
}

TEST(Frame, EveryAnswerHasItsReason) {
  const std::map<std::string, AnswerCheck> reasons = {
      {"Valid", kAnswerValid}, {"Incomplete", kAnswerIncomplete}, {"Bad", kAnswerBad}, {"Refused", kAnswerRefused}};
  for (const TableRow& row : ReadTable("link/frames.tsv", 4)) {
    const Bytes answer = Answer(row[1]);
    const auto received = static_cast<std::uint32_t>(answer.size());
    EXPECT_EQ(reasons.at(row[3]), ValidateAnswer(answer.data(), received, 1, Numbers(row[2])[0])) << row[0];
  }
}

}  // namespace
}  // namespace ostrel::test
