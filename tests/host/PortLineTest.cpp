// When an answer is over, what is thrown away, and whose answer an answer is.
#include <gtest/gtest.h>

#include <memory>

#include "host/ports/PortLine.h"
#include "tests/host/FakeStream.h"
#include "tests/support/Hex.h"
#include "tests/support/TableFile.h"

namespace ostrel::host {
namespace {

/// A port on the virtual clock over a stream whose other end is a script.
struct Rig {
  explicit Rig(const LineOptions& options = {.lateGuardMs = 0}, std::uint32_t gapMs = 0)
      : line{.clock = time, .gapMs = gapMs}, port(std::make_unique<FakeStream>(line), options) {
    port.SetTimeouts(500, 5);
  }
  void Send(const Bytes& request) { ASSERT_TRUE(port.Send(request.data(), request.size())); }
  Bytes Receive(std::size_t wanted = 300) {
    Bytes buffer(300);
    const PortLine::Received received = port.Receive(buffer.data(), wanted);
    echoRight = received.echoRight;
    buffer.resize(received.count);
    return buffer;
  }

  ClockInPlace time;
  FakeLine line;
  PortLine port;
  bool echoRight = false;
};

TEST(PortLine, ReadEndsByCountByQuietOrBySilence) {
  for (const test::TableRow& row : test::ReadTable("host/port_reads.tsv", 8)) {
    SCOPED_TRACE(row[0]);
    const auto number = [&](std::size_t field) { return static_cast<std::uint32_t>(std::stoul(row[field])); };
    Rig rig({.lateGuardMs = 0}, number(3));
    ASSERT_TRUE(rig.port.SetMode({.baud = number(2)}));
    rig.port.SetTimeouts(500, number(4));
    for (const std::string& piece : test::Split(row[1], ' ')) {
      if (!piece.empty()) rig.line.Arrive(std::stol(piece), Bytes(test::Numbers(piece, ':')[1], 0xAA));
    }
    EXPECT_EQ(number(6), rig.Receive(number(5)).size());
    EXPECT_EQ(number(7), rig.time.Elapsed());
  }
}

// A transport with gaps of 20 ms. Every answer comes whole, 20 ms after its request.
TEST(PortLine, WaitsForNoQuietBehindAnAnswerLikeTheLastOne) {
  Rig rig({.lateGuardMs = 0}, 20);
  for (const test::TableRow& row : test::ReadTable("host/port_quiet.tsv", 4)) {
    const Bytes answer = test::Hex(row[2]);
    rig.line.onSend = [&](const Bytes&) { rig.line.Arrive(20, answer); };
    ASSERT_TRUE(rig.port.Purge());
    rig.Send(test::Hex(row[1]));
    const std::int64_t sent = rig.time.Elapsed();
    EXPECT_EQ(answer, rig.Receive()) << row[0];
    EXPECT_EQ(std::stol(row[3]), rig.time.Elapsed() - sent) << row[0];
  }
}

TEST(PortLine, FreshLineIsWaitedForOnceWhateverLiesOnIt) {
  for (const std::size_t stale : {2U, 301U, 1000U}) {
    Rig rig({.lateGuardMs = 100});
    rig.line.Arrive(50, Bytes(stale, 7));
    for (int twice = 0; twice < 2; ++twice) {
      EXPECT_TRUE(rig.port.Purge());
      EXPECT_EQ(50 + 5 + 100, rig.time.Elapsed()) << stale;  // what came ends with its own quiet
    }
    EXPECT_TRUE(rig.line.arrivals.empty());
  }
}

TEST(PortLine, TakesNoAnswerOfAnotherMeterAndOneOfItsOwnOnlyWhenItCanBeNoOther) {
  for (const test::TableRow& row : test::ReadTable("host/port_owed.tsv", 5)) {
    SCOPED_TRACE(row[0]);
    const std::vector<std::string> answers = test::Split(row[2], '|');
    Rig rig({.lateGuardMs = 100});
    ASSERT_TRUE(rig.port.Purge());
    if (!row[1].empty()) {
      rig.Send(test::Hex(row[1]));
      ASSERT_EQ(Bytes(), rig.Receive());
      rig.line.sent.clear();
    }
    rig.line.onSend = [&](const Bytes&) {
      if (rig.line.sent.size() <= answers.size()) rig.line.Arrive(20, test::Hex(answers[rig.line.sent.size() - 1]));
    };
    rig.Send({1, 5, 2});
    EXPECT_EQ(row[3], test::ToHex(rig.Receive()));
    EXPECT_EQ(std::stoul(row[4]), rig.line.sent.size());
  }
}

TEST(PortLine, NoiseWithoutEndHoldsNobody) {
  Rig rig({.lateGuardMs = 100});
  for (std::int64_t at = 0; at < 60'000; at += 10) rig.line.Arrive(at, {0xFF});
  EXPECT_FALSE(rig.port.Purge());
  EXPECT_LE(rig.time.Elapsed(), 3200);
  EXPECT_TRUE(rig.line.sent.empty());
}

TEST(PortLine, EchoIsTakenOutByTheByte) {
  for (const test::TableRow& row : test::ReadTable("host/port_echo.tsv", 4)) {
    SCOPED_TRACE(row[0]);
    Rig rig({.lateGuardMs = 100, .echo = true});
    ASSERT_TRUE(rig.port.Purge());
    rig.line.onSend = [&](const Bytes&) {
      std::int64_t afterMs = 0;
      for (const std::uint8_t byte : test::Hex(row[1])) rig.line.Arrive(afterMs++, {byte});
    };
    rig.Send({1, 2, 3});
    EXPECT_EQ(row[3], test::ToHex(rig.Receive()));
    EXPECT_EQ(row[2] == "right", rig.echoRight);
    // What is left of a spoiled exchange does not reach the next one.
    rig.line.onSend = nullptr;
    EXPECT_TRUE(rig.port.Purge());
    EXPECT_TRUE(rig.line.arrivals.empty());
  }
}

}  // namespace
}  // namespace ostrel::host
