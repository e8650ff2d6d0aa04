// When an answer is over, what is thrown away, and whose answer an answer is.
#include <gtest/gtest.h>

#include <memory>

#include "host/ports/PortLine.h"
#include "tests/host/FakeStream.h"
#include "tests/support/Hex.h"

namespace ostrel::host {
namespace {

struct Piece {
  std::int64_t atMs;
  std::size_t bytes;
};

struct ReadCase {
  const char* name;
  std::vector<Piece> pieces;  // after the request
  std::uint32_t baud = 9600;
  std::uint32_t gapMs = 0;
  std::uint32_t quietMs = 5;
  std::size_t wanted = 300;
  std::size_t count = 0;
  std::int64_t tookMs = 0;
};

std::vector<Piece> SingleBytes(std::int64_t firstMs, std::int64_t apartMs, std::size_t count) {
  std::vector<Piece> pieces;
  for (std::size_t i = 0; i < count; ++i) pieces.push_back({firstMs + apartMs * static_cast<std::int64_t>(i), 1});
  return pieces;
}

// Time-outs are 500 ms for the beginning and, if nothing is said, 5 ms of quiet, as at 9600 baud.
TEST(PortLine, ReadEndsByCountByQuietOrBySilence) {
  const ReadCase cases[] = {
      {.name = "wanted count", .pieces = {{20, 19}}, .wanted = 19, .count = 19, .tookMs = 20},
      {.name = "quiet", .pieces = {{20, 19}}, .count = 19, .tookMs = 25},
      {.name = "silence", .pieces = {}, .count = 0, .tookMs = 500},
      {.name = "begins at the last moment", .pieces = {{499, 4}}, .count = 4, .tookMs = 504},
      {.name = "begins too late", .pieces = {{501, 4}}, .count = 0, .tookMs = 500},
      {.name = "single bytes", .pieces = SingleBytes(20, 4, 19), .count = 19, .tookMs = 20 + 18 * 4 + 5},
      {.name = "a pause ends it", .pieces = {{20, 4}, {26, 15}}, .count = 4, .tookMs = 25},
      {.name = "a transport with gaps waits longer", .pieces = {{20, 4}, {36, 15}}, .gapMs = 20, .count = 19, .tookMs = 56},
      {.name = "a longer quiet", .pieces = {{20, 4}, {55, 15}}, .quietMs = 40, .count = 19, .tookMs = 55 + 40},
      // Two characters of eleven bits are 73.3 ms at 300 baud.
      {.name = "two characters of a slow line", .pieces = {{20, 1}, {93, 3}}, .baud = 300, .count = 4, .tookMs = 93 + 74},
      {.name = "more than wanted", .pieces = {{20, 8}}, .wanted = 4, .count = 4, .tookMs = 20},
      {.name = "zero wanted", .pieces = {{0, 4}}, .wanted = 0, .count = 0, .tookMs = 0},
  };
  for (const ReadCase& row : cases) {
    SCOPED_TRACE(row.name);
    ClockInPlace time;
    FakeLine line{.clock = time.clock};
    line.gapMs = row.gapMs;
    PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 0});
    ASSERT_TRUE(port.SetMode({.baud = row.baud}));
    port.SetTimeouts(500, row.quietMs);
    for (const Piece& piece : row.pieces) line.Arrive(piece.atMs, Bytes(piece.bytes, 0xAA));
    Bytes buffer(300);
    EXPECT_EQ(row.count, port.Receive(buffer.data(), row.wanted).count);
    EXPECT_EQ(row.tookMs, time.clock.Elapsed());
  }
}

// A transport with gaps of 20 ms. Every answer comes whole, 20 ms after its request.
TEST(PortLine, WaitsForNoQuietBehindAnAnswerLikeTheLastOne) {
  const Bytes seven = test::Frame("01 01 02 03 04");
  Bytes spoiled = seven;
  spoiled.back() ^= 1;
  const struct {
    const char* name;
    Bytes request;
    Bytes answer;
    std::int64_t tookMs;
  } rows[] = {
      {"nobody knows its length", {1, 5, 1}, seven, 40},
      {"as long as the last one", {1, 5, 1}, seven, 20},
      {"another request", {1, 5, 2}, seven, 40},
      {"a status", {1, 5, 1}, test::Frame("01 06"), 40},
      {"a wrong check", {1, 5, 1}, spoiled, 40},
      {"the test of the connection", test::Frame("01 00"), test::Frame("01 00"), 40},
      {"which has no other answer", test::Frame("01 00"), test::Frame("01 00"), 20},
      {"longer than the last one", {1, 5, 1}, test::Frame("01 01 02 03 04 05"), 40},
      {"which is known now", {1, 5, 1}, test::Frame("01 01 02 03 04 05"), 20},
      {"shorter", {1, 5, 1}, seven, 40},
  };
  ClockInPlace time;
  FakeLine line{.clock = time.clock, .gapMs = 20};
  PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 0});
  port.SetTimeouts(500, 5);
  Bytes buffer(300);
  for (const auto& row : rows) {
    line.onSend = [&](const Bytes&) { line.Arrive(20, row.answer); };
    ASSERT_TRUE(port.Purge());
    ASSERT_TRUE(port.Send(row.request.data(), row.request.size()));
    const std::int64_t sent = time.clock.Elapsed();
    EXPECT_EQ(row.answer.size(), port.Receive(buffer.data(), buffer.size()).count) << row.name;
    EXPECT_EQ(row.tookMs, time.clock.Elapsed() - sent) << row.name;
  }
}

TEST(PortLine, FreshLineIsWaitedForOnceWhateverLiesOnIt) {
  for (const std::size_t stale : {2U, 301U, 1000U}) {
    ClockInPlace time;
    FakeLine line{.clock = time.clock};
    PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100});
    line.Arrive(50, Bytes(stale, 7));
    for (int twice = 0; twice < 2; ++twice) {
      EXPECT_TRUE(port.Purge());
      EXPECT_EQ(50 + 5 + 100, time.clock.Elapsed()) << stale;  // what came ends with its own quiet
    }
    EXPECT_TRUE(line.arrivals.empty());
  }
}

// A frame of four bytes is a meter's status, so these answers have a byte of data. Whatever is asked gets `answers`.
TEST(PortLine, TakesNoAnswerOfAnotherMeterAndOneOfItsOwnOnlyWhenItCanBeNoOther) {
  const Bytes own = test::Frame("01 07 07");
  const Bytes late = test::Frame("01 09 09");
  const Bytes other = test::Frame("02 08 08");
  Bytes glued = other;
  glued.insert(glued.end(), own.begin(), own.end());
  const struct {
    const char* name;
    Bytes owed;                  // a request that got no answer before
    std::vector<Bytes> answers;  // to the copies of the request, 20 ms after each
    Bytes taken;
    std::size_t copies;
  } rows[] = {
      {"nothing is owed", {}, {own}, own, 1},
      {"another meter's", {}, {other}, {}, 1},
      {"another meter's before its own", {}, {glued}, own, 1},
      {"another meter owes", {2, 5, 1}, {own}, own, 1},
      {"the same answer is owed", {1, 5, 2}, {own}, own, 1},
      {"another one is owed, and may come twice", {1, 5, 1}, {own, own, own}, own, 3},
      {"another one is owed and comes", {1, 5, 1}, {late, own, own, own}, own, 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ClockInPlace time;
    FakeLine line{.clock = time.clock};
    PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100});
    port.SetTimeouts(500, 5);
    Bytes buffer(300);
    ASSERT_TRUE(port.Purge());
    if (!row.owed.empty()) {
      ASSERT_TRUE(port.Send(row.owed.data(), row.owed.size()));
      ASSERT_EQ(0U, port.Receive(buffer.data(), buffer.size()).count);
      line.sent.clear();
    }
    line.onSend = [&](const Bytes&) {
      if (line.sent.size() <= row.answers.size()) line.Arrive(20, row.answers[line.sent.size() - 1]);
    };
    const Bytes request = {1, 5, 2};
    ASSERT_TRUE(port.Send(request.data(), request.size()));
    buffer.resize(port.Receive(buffer.data(), buffer.size()).count);
    EXPECT_EQ(row.taken, buffer);
    EXPECT_EQ(row.copies, line.sent.size());
  }
}

TEST(PortLine, NoiseWithoutEndHoldsNobody) {
  ClockInPlace time;
  FakeLine line{.clock = time.clock};
  PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100});
  for (std::int64_t at = 0; at < 60'000; at += 10) line.Arrive(at, {0xFF});
  EXPECT_FALSE(port.Purge());
  EXPECT_LE(time.clock.Elapsed(), 3200);
  EXPECT_TRUE(line.sent.empty());
}

struct EchoCase {
  const char* name;
  Bytes comesBack;
  bool right;
  Bytes answer;
};

TEST(PortLine, EchoIsTakenOutByTheByte) {
  const EchoCase cases[] = {
      {.name = "echo and answer", .comesBack = {1, 2, 3, 1, 8, 9, 9}, .right = true, .answer = {1, 8, 9, 9}},
      {.name = "echo alone", .comesBack = {1, 2, 3}, .right = true, .answer = {}},
      {.name = "nothing", .comesBack = {}, .right = true, .answer = {}},
      {.name = "answer without echo", .comesBack = {7, 8, 9, 9}, .right = false, .answer = {}},
      {.name = "spoiled echo", .comesBack = {1, 2, 0x83, 7, 8, 9, 9}, .right = false, .answer = {}},
      {.name = "cut echo", .comesBack = {1, 2}, .right = false, .answer = {}},
  };
  for (const EchoCase& row : cases) {
    SCOPED_TRACE(row.name);
    ClockInPlace time;
    FakeLine line{.clock = time.clock};
    PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100, .echo = true});
    port.SetTimeouts(500, 5);
    ASSERT_TRUE(port.Purge());
    line.onSend = [&](const Bytes&) {
      for (std::size_t i = 0; i < row.comesBack.size(); ++i) line.Arrive(static_cast<std::int64_t>(i), {row.comesBack[i]});
    };
    const Bytes request = {1, 2, 3};
    ASSERT_TRUE(port.Send(request.data(), request.size()));
    Bytes buffer(300);
    const PortLine::Received received = port.Receive(buffer.data(), buffer.size());
    buffer.resize(received.count);
    EXPECT_EQ(row.right, received.echoRight);
    EXPECT_EQ(row.answer, buffer);
    // What is left of a spoiled exchange does not reach the next one.
    line.onSend = nullptr;
    EXPECT_TRUE(port.Purge());
    EXPECT_TRUE(line.arrivals.empty());
  }
}

struct ModeCase {
  const char* text;
  bool valid;
  std::uint32_t baud = 0;
  Parity parity = Parity::None;
};

TEST(LineMode, ReadsTheModeStringOfThePlugIn) {
  const ModeCase cases[] = {
      {"baud=9600 data=8 parity=N stop=1", true, 9600, Parity::None},
      {"baud=300 data=8 parity=E stop=1", true, 300, Parity::Even},
      {"baud=9600 data=8 parity=O stop=1", true, 9600, Parity::Odd},
      {"baud=115200 data=8 parity=M stop=1", true, 115200, Parity::Mark},
      {"baud=1200 data=8 parity=S stop=1", true, 1200, Parity::Space},
      {"baud=9600 data=8 parity=NONE stop=1", true, 9600, Parity::None},
      {"baud=0 data=8 parity=N stop=1", false},
      {"baud=-1 data=8 parity=N stop=1", false},
      {"baud=9600x data=8 parity=N stop=1", false},
      {"baud=9600 data=7 parity=N stop=1", false},
      {"baud=9600 data=8 parity=X stop=1", false},
      {"baud=9600 data=8 parity=N stop=2", false},
      {"", false},
  };
  for (const ModeCase& row : cases) {
    SCOPED_TRACE(row.text);
    const std::optional<LineMode> mode = ParseLineMode(row.text);
    ASSERT_EQ(row.valid, mode.has_value());
    if (!mode) continue;
    EXPECT_EQ(row.baud, mode->baud);
    EXPECT_EQ(row.parity, mode->parity);
  }
}

}  // namespace
}  // namespace ostrel::host
