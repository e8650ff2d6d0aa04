#include <gtest/gtest.h>

#include <sstream>

#include "simulator/Bytes.h"
#include "simulator/RequestFramer.h"
#include "tests/support/Hex.h"

namespace ostrel::test {
namespace {

using sim::RequestFramer;

std::string Joined(const std::vector<Bytes>& requests) {
  std::string text;
  for (const Bytes& request : requests) text += (text.empty() ? "" : "|") + ToHex(request);
  return text;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST(RequestFramer, FindsEveryRequestAtItsLastByte) {
  std::istringstream bodies(
      "01 00|01 01 30 30 30 30 30 30|01 04 00|01 05 00 00|01 08 00|01 08 06|01 08 06 01|01 08 11 A1|01 08 18 00|01 08 20 04 00|"
      "01 09 01 00|01 03 07 05|01 03 0D 00 00 12|01 03 0C 42 07 14 07 08 03 26 01|01 03 1B 00 64|01 03 2F 00|"
      "01 03 2F 04 00 00 00 00 01|01 03 28 00 00 00 10 22 11 26 00 1E|01 06 03 00 10 08|01 0A 84 00 00 0F 00|01 7F 11");
  for (std::string body; std::getline(bodies, body, '|');) {
    RequestFramer framer;
    const Bytes frame = Frame(body);
    for (std::size_t i = 0; i + 1 < frame.size(); ++i) EXPECT_EQ(Joined(framer.Feed({&frame[i], 1}, 0)), "") << body;
    EXPECT_EQ(Joined(framer.Feed({&frame.back(), 1}, 0)), ToHex(frame)) << body;
    EXPECT_FALSE(framer.Pending());
  }
}

TEST(RequestFramer, TakesSeveralAtOnceAndKeepsTheRest) {
  RequestFramer framer;
  const Bytes bytes = Frame("01 00") + Frame("02 08 05") + Hex("03 05");
  EXPECT_EQ(Joined(framer.Feed(bytes, 0)), ToHex(Frame("01 00")) + "|" + ToHex(Frame("02 08 05")));
  EXPECT_TRUE(framer.Pending());
}

TEST(RequestFramer, GivesUpAfterAQuietGapOnly) {
  RequestFramer framer;
  const Bytes half = Hex("01 05 00");
  EXPECT_TRUE(framer.Feed(half, 1000).empty());
  EXPECT_TRUE(framer.GiveUp(1000 + sim::kQuietGapMs - 1).empty());
  EXPECT_EQ(framer.GiveUp(1000 + sim::kQuietGapMs), half);
  EXPECT_TRUE(framer.GiveUp(5000).empty());
  EXPECT_EQ(Joined(framer.Feed(Frame("01 00"), 5000)), ToHex(Frame("01 00")));
}

/// The first five bytes of this request are a right frame by themselves, but of no length that it can have.
TEST(RequestFramer, AFitByChanceInsideARequestIsNotItsEnd) {
  Bytes command = Hex("01 08 20 04");
  const std::uint16_t check = sim::Check(std::span(command).first(3));
  command.resize(3);
  command.push_back(static_cast<std::uint8_t>(check & 0xFF));
  command.push_back(static_cast<std::uint8_t>(check >> 8));
  command = WithCheck(command);
  RequestFramer framer;
  EXPECT_EQ(Joined(framer.Feed(command, 0)), ToHex(command));
}

}  // namespace
}  // namespace ostrel::test
