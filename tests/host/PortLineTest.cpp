// When an answer is over, what is thrown away, and whose answer an answer is.
#include <gtest/gtest.h>

#include <memory>
#include <optional>

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
  std::size_t wanted = 300;
  std::size_t count = 0;
  std::int64_t tookMs = 0;
};

std::vector<Piece> SingleBytes(std::int64_t firstMs, std::int64_t apartMs, std::size_t count) {
  std::vector<Piece> pieces;
  for (std::size_t i = 0; i < count; ++i) pieces.push_back({firstMs + apartMs * static_cast<std::int64_t>(i), 1});
  return pieces;
}

// Time-outs are 500 ms for the beginning and 5 ms of quiet, as at 9600 baud.
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
    port.SetTimeouts(500, 5);
    for (const Piece& piece : row.pieces) line.Arrive(piece.atMs, Bytes(piece.bytes, 0xAA));
    Bytes buffer(300);
    EXPECT_EQ(row.count, port.Receive(buffer.data(), row.wanted).count);
    EXPECT_EQ(row.tookMs, time.clock.Elapsed());
  }
}

/// A meter that echoes the number of the request, in four bytes whatever is asked.
struct NumberedMeter {
  FakeLine& line;
  std::function<std::int64_t(int)> delayMs;  // of the n-th request that it gets
  int requests = 0;

  void Listen() {
    line.onSend = [this](const Bytes& request) {
      const std::int64_t delay = delayMs(++requests);
      line.Arrive(delay, {1, request[1], request[2], 0x55});
    };
  }
};

struct Tally {
  int right = 0;
  int wrong = 0;
  int unanswered = 0;
};

// Three tries each, as the plug-in makes them: purge, send, read, and again when nothing came.
Tally AskThousandTimes(FakeLine& line) {
  PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100});
  port.SetTimeouts(500, 5);
  Tally tally;
  for (int number = 0; number < 1000; ++number) {
    const Bytes request = {1, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number), 0x11};
    std::optional<bool> right;
    for (int attempt = 0; attempt < 3 && !right; ++attempt) {
      Bytes answer(300);
      if (!port.Purge() || !port.Send(request.data(), request.size())) continue;
      const std::size_t count = port.Receive(answer.data(), answer.size()).count;
      if (count != 0) right = count == 4 && answer[1] == request[1] && answer[2] == request[2];
    }
    ++(right ? *right ? tally.right : tally.wrong : tally.unanswered);
  }
  return tally;
}

TEST(PortLine, AnswersOfEveryLatenessWithinTheGuardKeepTheirRequest) {
  ClockInPlace time;
  FakeLine line{.clock = time.clock};
  // From in time to just within the guard, in an order that has no period of ten.
  NumberedMeter meter{.line = line, .delayMs = [](int request) { return request % 3 == 0 ? 495 + request * 7 % 104 : 20; }};
  meter.Listen();
  const Tally tally = AskThousandTimes(line);
  EXPECT_EQ(0, tally.wrong);
  EXPECT_EQ(0, tally.unanswered);
}

// Each row leaves the line in some state; then a purge at the given moment takes so long.
struct PurgeCase {
  const char* name;
  std::size_t wanted;                  // of the read before it
  std::vector<std::int64_t> arrivals;  // ms after the request, four bytes each
  std::int64_t tookMs;
};

TEST(PortLine, PurgeWaitsForQuietWhenALateAnswerMayCome) {
  const PurgeCase cases[] = {
      {.name = "after an answer", .wanted = 4, .arrivals = {20}, .tookMs = 0},
      {.name = "after silence", .wanted = 300, .arrivals = {}, .tookMs = 100},
      {.name = "late answer comes meanwhile", .wanted = 300, .arrivals = {580}, .tookMs = 180},
      {.name = "and a second one", .wanted = 300, .arrivals = {580, 640}, .tookMs = 240},
      {.name = "stale bytes after an answer", .wanted = 4, .arrivals = {20, 20}, .tookMs = 100},
      {.name = "spoiled answer that was given up", .wanted = 0, .arrivals = {0}, .tookMs = 100},
  };
  for (const PurgeCase& row : cases) {
    SCOPED_TRACE(row.name);
    ClockInPlace time;
    FakeLine line{.clock = time.clock};
    PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100});
    port.SetTimeouts(500, 5);
    ASSERT_TRUE(port.Purge());
    const Bytes request = {1, 2, 3};
    ASSERT_TRUE(port.Send(request.data(), request.size()));
    for (const std::int64_t at : row.arrivals) line.Arrive(at, {9, 9, 9, 9});
    Bytes buffer(300);
    (void)port.Receive(buffer.data(), row.wanted);
    const std::int64_t before = time.clock.Elapsed();
    EXPECT_TRUE(port.Purge());
    EXPECT_EQ(row.tookMs, time.clock.Elapsed() - before);
    EXPECT_TRUE(line.arrivals.empty());
  }
}

TEST(PortLine, FreshLineIsWaitedForOnce) {
  ClockInPlace time;
  FakeLine line{.clock = time.clock};
  PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100});
  line.Arrive(50, {7, 7});
  EXPECT_TRUE(port.Purge());
  EXPECT_EQ(150, time.clock.Elapsed());
  EXPECT_TRUE(port.Purge());
  EXPECT_EQ(150, time.clock.Elapsed());
}

// An answer with a wrong check may be another request's; one with a right check is the answer.
TEST(PortLine, TheSameRequestAgainWaitsUnlessItWasAnswered) {
  ClockInPlace time;
  FakeLine line{.clock = time.clock};
  PortLine port(std::make_unique<FakeStream>(line), {.lateGuardMs = 100});
  port.SetTimeouts(500, 5);
  Bytes answer;
  line.onSend = [&](const Bytes&) { line.Arrive(20, answer); };
  const auto ask = [&](const Bytes& request) {
    const std::int64_t before = time.clock.Elapsed();
    Bytes buffer(4);
    EXPECT_TRUE(port.Purge());
    EXPECT_TRUE(port.Send(request.data(), request.size()));
    EXPECT_EQ(4U, port.Receive(buffer.data(), buffer.size()).count);
    return time.clock.Elapsed() - before;
  };
  const Bytes right = test::Frame("01 00");
  const Bytes wrong = {1, 1, 1, 1};
  const struct {
    Bytes request;
    Bytes answer;
    std::int64_t tookMs;
    const char* why;
  } rows[] = {
      {{1, 2, 3}, wrong, 120, "the fresh line"}, {{1, 2, 3}, wrong, 120, "again, unanswered"},
      {{1, 2, 4}, right, 120, "after it"},       {{1, 2, 4}, right, 20, "again, answered"},
      {{1, 2, 4}, wrong, 20, "and once more"},   {{1, 2, 4}, right, 120, "again, its answer spoiled"},
      {{1, 2, 5}, right, 120, "after it"},       {{1, 2, 6}, right, 20, "another one"},
  };
  for (const auto& row : rows) {
    answer = row.answer;
    EXPECT_EQ(row.tookMs, ask(row.request)) << row.why;
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
      {.name = "echo and answer", .comesBack = {1, 2, 3, 7, 8, 9, 9}, .right = true, .answer = {7, 8, 9, 9}},
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
