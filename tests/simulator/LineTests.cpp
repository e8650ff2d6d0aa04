// The simulated line: requests found in a stream of bytes, and answers delivered and spoiled by its faults.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <utility>

#include "simulator/Line.h"
#include "simulator/RequestFramer.h"
#include "tests/support/SimulatedLine.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

using sim::Delivery;
using sim::Fault;
using sim::FaultKind;
using sim::Line;
using sim::RequestFramer;

constexpr std::int64_t kNow = 1795348800000;

Line MakeLine(std::vector<Fault> faults, std::uint64_t seed = 1, sim::Pace pace = {}) {
  std::vector<sim::Meter> meters;
  for (const char* spec : {"1:1", "2:8"}) meters.emplace_back(Spec(spec), 1);
  return Line(std::move(meters), {.seed = seed, .faults = std::move(faults)}, pace);
}

/// Deliveries as "@7000 01 00", with microseconds; those that come together are one.
std::string Ask(Line& line, const char* request, std::int64_t now = kNow) {
  std::string text;
  std::int64_t last = -1;
  for (const Delivery& delivery : line.Transact(Frame(request), now)) {
    if (delivery.afterUs != std::exchange(last, delivery.afterUs)) text += " @" + std::to_string(delivery.afterUs);
    text += " " + ToHex(delivery.bytes);
  }
  return text;
}

// The answer to 01 00 and its echo are the same bytes, 01 00 00 20; those of meter 2 are 02 00 00 D0.
TEST(Line, DeliversAndSpoilsByItsFaults) {
  const struct {
    const char* what;
    std::vector<Fault> faults;
    std::vector<const char*> requests;
    const char* deliveries;  // a regular expression, "," behind each request's
    int times = 1;
  } rows[] = {
      {"each meter for itself", {}, {"01 00", "02 00", "03 00"}, " @0 01 00 00 20, @0 02 00 00 D0,,"},
      {"lost byte", {{.kind = FaultKind::LostByte}}, {"01 00"}, " @0( [0-9A-F][0-9A-F]){3},", 50},
      {"cut", {{.kind = FaultKind::CutAnswer}}, {"01 00"}, " @0 (01|01 00|01 00 00),", 50},
      {"pieces", {{.kind = FaultKind::Pieces, .bytes = 3, .ms = 7}}, {"01 00"}, " @0 01 00 00 @7000 20,"},
      {"late",
       {{.kind = FaultKind::Late, .every = 2, .ms = 80}},
       {"01 00", "01 00", "01 00"},
       " @0 01 00 00 20, @80000 01 00 00 20, @0 01 00 00 20,"},
      {"echo", {{.kind = FaultKind::Echo}}, {"02 00", "09 00"}, " @0 02 00 00 D0 02 00 00 D0, @0 09 00 07 E0,"},
      {"noise", {{.kind = FaultKind::Noise, .bytes = 5}}, {"01 00"}, " @0( [0-9A-F][0-9A-F]){1,5} 01 00 00 20,", 50},
      {"silence of one", {{.kind = FaultKind::Silence, .address = 2}}, {"02 00", "01 00"}, ", @0 01 00 00 20,"},
      {"merged",
       {{.kind = FaultKind::Merged, .every = 2}},
       {"01 00", "01 00", "02 00"},
       " @0 01 00 00 20,, @0 01 00 00 20 02 00 00 D0,"},
  };
  for (const auto& row : rows) {
    Line line = MakeLine(row.faults);
    for (int time = 0; time < row.times; ++time) {
      std::string deliveries;
      for (const char* request : row.requests) deliveries += Ask(line, request) + ",";
      EXPECT_THAT(deliveries, testing::MatchesRegex(row.deliveries)) << row.what;
    }
  }
  Line flipped = MakeLine({{.kind = FaultKind::FlippedBit}});
  for (int time = 0; time < 50; ++time) {
    const Bytes answer = Hex(Ask(flipped, "01 00").substr(3));
    int bits = 0;
    for (std::size_t at = 0; at < 4; ++at) bits += std::popcount(static_cast<unsigned>(answer.at(at) ^ Frame("01 00")[at]));
    EXPECT_EQ(bits, 1);
  }
}

TEST(Line, PaceCountsTheBitsOfAByteInMicroseconds) {
  Line fast = MakeLine({}, 1, {.baud = 115200});  // 86.8 us a byte; the request's four bytes and then one more each time
  EXPECT_EQ(Ask(fast, "01 00"), " @435 01 @521 00 @608 00 @695 20");
  Line parity = MakeLine({}, 1, {.baud = 9600, .bitsPerByte = sim::kBitsPerByteWithParity});
  EXPECT_EQ(Ask(parity, "01 00"), " @5730 01 @6875 00 @8021 00 @9167 20");
}

TEST(Line, FailsForATime) {
  Line line = MakeLine({{.kind = FaultKind::PortFailure, .every = 2, .ms = 500}});
  EXPECT_NE(Ask(line, "01 00"), "");
  EXPECT_FALSE(line.IsDown(kNow));
  EXPECT_EQ(Ask(line, "01 00"), "");
  EXPECT_TRUE(line.IsDown(kNow + 499));
  EXPECT_FALSE(line.IsDown(kNow + 500));
  EXPECT_NE(Ask(line, "01 00", kNow + 500), "");
}

TEST(Line, TheSameSeedGivesTheSameFaults) {
  const auto run = [](std::uint64_t seed) {
    Line line =
        MakeLine({{.kind = FaultKind::LostByte, .chance = 0.3}, {.kind = FaultKind::Noise, .chance = 0.1, .bytes = 4}}, seed);
    std::string all;
    for (int i = 0; i < 200; ++i) all += Ask(line, "01 00");
    return all;
  };
  EXPECT_EQ(run(1), run(1));
  EXPECT_NE(run(1), run(2));
}

std::string Joined(const std::vector<Bytes>& requests) {
  std::string text;
  for (const Bytes& request : requests) text += (text.empty() ? "" : "|") + ToHex(request);
  return text;
}

TEST(RequestFramer, FindsEveryRequestAtItsLastByte) {
  const char* const bodies =
      "01 00|01 01 30 30 30 30 30 30|01 04 00|01 05 00 00|01 08 00|01 08 06|01 08 06 01|01 08 11 A1|01 08 18 00|01 08 20 04 00|"
      "01 09 01 00|01 03 07 05|01 03 0D 00 00 12|01 03 0C 42 07 14 07 08 03 26 01|01 03 1B 00 64|01 03 2F 00|"
      "01 03 2F 04 00 00 00 00 01|01 03 28 00 00 00 10 22 11 26 00 1E|01 06 03 00 10 08|01 0A 84 00 00 0F 00|01 7F 11";
  for (const std::string& body : Split(bodies, '|')) {
    RequestFramer framer;
    const Bytes frame = Frame(body);
    for (std::size_t i = 0; i + 1 < frame.size(); ++i) EXPECT_EQ(Joined(framer.Feed({&frame[i], 1}, 0)), "") << body;
    EXPECT_EQ(Joined(framer.Feed({&frame.back(), 1}, 0)), ToHex(frame)) << body;
    EXPECT_FALSE(framer.Pending());
  }
}

TEST(RequestFramer, TakesSeveralAtOnceAndKeepsTheRest) {
  RequestFramer framer;
  EXPECT_EQ(Joined(framer.Feed(Hex("01 00 00 20  02 00 00 D0  03 05"), 0)), "01 00 00 20|02 00 00 D0");
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
  const Bytes command = WithCheck(Frame("01 08 20"));
  RequestFramer framer;
  EXPECT_EQ(Joined(framer.Feed(command, 0)), ToHex(command));
}

}  // namespace
}  // namespace ostrel::test
