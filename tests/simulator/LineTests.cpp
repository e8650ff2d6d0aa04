#include <gtest/gtest.h>

#include <bit>

#include "simulator/Line.h"
#include "tests/simulator/OneMeter.h"

namespace ostrel::test {
namespace {

using sim::Delivery;
using sim::Fault;
using sim::FaultKind;
using sim::Line;

Line MakeLine(std::vector<Fault> faults, std::uint64_t seed = 1, sim::Pace pace = {}) {
  std::vector<sim::Meter> meters;
  for (const char* spec : {"1:1", "2:8"}) meters.emplace_back(Spec(spec), 1);
  return Line(std::move(meters), {.seed = seed, .faults = std::move(faults)}, pace);
}

Bytes All(const std::vector<Delivery>& deliveries) {
  Bytes bytes;
  for (const Delivery& delivery : deliveries) bytes.insert(bytes.end(), delivery.bytes.begin(), delivery.bytes.end());
  return bytes;
}

const Bytes kTest = Frame("01 00");  // its answer is the same bytes

Bytes Ask(Line& line, const Bytes& request = kTest) { return All(line.Transact(request, kNoon)); }

TEST(Line, EachMeterAnswersForItself) {
  Line line = MakeLine({});
  EXPECT_EQ(Ask(line), Frame("01 00"));
  EXPECT_EQ(Ask(line, Frame("02 00")), Frame("02 00"));
  EXPECT_TRUE(Ask(line, Frame("03 00")).empty());
  EXPECT_TRUE(Ask(line, {}).empty());
}

TEST(Line, PaceCountsTheBitsOfAByteInMicroseconds) {
  const struct {
    sim::Pace pace;
    std::int64_t afterUs[4];  // the request's four bytes and then one more each time
  } rows[] = {
      {{.baud = 115200}, {435, 521, 608, 695}},  // 86.8 us a byte
      {{.baud = 9600, .bitsPerByte = sim::kBitsPerByteWithParity}, {5730, 6875, 8021, 9167}},
  };
  for (const auto& row : rows) {
    Line line = MakeLine({}, 1, row.pace);
    const auto deliveries = line.Transact(kTest, kNoon);
    ASSERT_EQ(deliveries.size(), 4U);
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(deliveries[i].afterUs, row.afterUs[i]) << row.pace.baud << ' ' << i;
  }
}

TEST(Line, SpoilsBytesOfTheAnswer) {
  Line lost = MakeLine({{.kind = FaultKind::LostByte}});
  EXPECT_EQ(Ask(lost).size(), 3U);
  Line cut = MakeLine({{.kind = FaultKind::CutAnswer}});
  for (int i = 0; i < 50; ++i) {
    const Bytes answer = Ask(cut);
    ASSERT_TRUE(!answer.empty() && answer.size() < 4);
    EXPECT_TRUE(std::equal(answer.begin(), answer.end(), kTest.begin()));
  }
  Line flipped = MakeLine({{.kind = FaultKind::FlippedBit}});
  for (int i = 0; i < 50; ++i) {
    const Bytes answer = Ask(flipped);
    ASSERT_EQ(answer.size(), 4U);
    int bits = 0;
    for (std::size_t at = 0; at < 4; ++at) bits += std::popcount(static_cast<unsigned>(answer[at] ^ kTest[at]));
    EXPECT_EQ(bits, 1);
  }
}

TEST(Line, ShapesTheAnswer) {
  Line pieces = MakeLine({{.kind = FaultKind::Pieces, .bytes = 3, .ms = 7}});
  const auto cut = pieces.Transact(kTest, kNoon);
  ASSERT_EQ(cut.size(), 2U);
  EXPECT_EQ(cut[0].bytes.size(), 3U);
  EXPECT_EQ(cut[1].afterUs, 7000);
  EXPECT_EQ(All(cut), kTest);

  Line late = MakeLine({{.kind = FaultKind::Late, .every = 3, .ms = 80}});
  for (int request = 1; request <= 6; ++request) {
    const auto deliveries = late.Transact(kTest, kNoon);
    ASSERT_EQ(deliveries.size(), 1U);
    EXPECT_EQ(deliveries[0].afterUs, request % 3 == 0 ? 80000 : 0) << request;
  }
}

TEST(Line, AddsAndTakesAway) {
  Line echo = MakeLine({{.kind = FaultKind::Echo}});
  EXPECT_EQ(ToHex(Ask(echo, Frame("02 00"))), ToHex(Frame("02 00")) + " " + ToHex(Frame("02 00")));
  EXPECT_EQ(Ask(echo, Frame("09 00")), Frame("09 00")) << "the adapter repeats what nobody answers, too";

  Line noise = MakeLine({{.kind = FaultKind::Noise, .bytes = 5}});
  const Bytes noisy = Ask(noise);
  ASSERT_TRUE(noisy.size() > 4 && noisy.size() <= 9);
  EXPECT_EQ(Bytes(noisy.end() - 4, noisy.end()), kTest);

  Line silence = MakeLine({{.kind = FaultKind::Silence, .address = 2}});
  EXPECT_TRUE(Ask(silence, Frame("02 00")).empty());
  EXPECT_EQ(Ask(silence), kTest);

  Line merged = MakeLine({{.kind = FaultKind::Merged, .every = 2}});
  EXPECT_EQ(Ask(merged), kTest);
  EXPECT_TRUE(Ask(merged).empty());
  EXPECT_EQ(ToHex(Ask(merged, Frame("02 00"))), ToHex(kTest) + " " + ToHex(Frame("02 00")));
}

TEST(Line, FailsForATime) {
  Line line = MakeLine({{.kind = FaultKind::PortFailure, .every = 2, .ms = 500}});
  EXPECT_EQ(Ask(line), kTest);
  EXPECT_FALSE(line.IsDown(kNoon));
  EXPECT_TRUE(Ask(line).empty());
  EXPECT_TRUE(line.IsDown(kNoon + 499));
  EXPECT_FALSE(line.IsDown(kNoon + 500));
  EXPECT_EQ(All(line.Transact(kTest, kNoon + 500)), kTest);
}

TEST(Line, TheSameSeedGivesTheSameFaults) {
  const auto run = [](std::uint64_t seed) {
    Line line = MakeLine({{.kind = FaultKind::LostByte, .chance = 0.3},
                          {.kind = FaultKind::FlippedBit, .chance = 0.2},
                          {.kind = FaultKind::Noise, .chance = 0.1, .bytes = 4}},
                         seed);
    std::string all;
    for (int i = 0; i < 200; ++i) all += ToHex(Ask(line)) + "\n";
    return all;
  };
  EXPECT_EQ(run(1), run(1));
  EXPECT_NE(run(1), run(2));
}

}  // namespace
}  // namespace ostrel::test
