// The frame that reads each tag of the catalogue, as the meters' protocol document has it.
#include <gtest/gtest.h>

#include <map>

#include "Protocol/acquisition/RequestBuilder.h"
#include "Protocol/acquisition/TagReader.h"
#include "tests/support/TestChannel.h"

namespace ostrel::test {
namespace {

constexpr std::uint8_t kLog = 0x1A;

/// The requests of consecutive tags between address and check; "" for none, "a > b" for two.
struct Row {
  std::uint32_t firstTag;
  std::vector<const char*> bodies;
};

const std::vector<const char*> kTariffs = {"05 00 01", "05 00 02", "05 00 03", "05 00 04", "05 00 05",
                                           "05 00 06", "05 00 07", "05 00 08", "05 00 00"};
// Current and previous day, month and year; the meter's own clock stands in June.
const std::vector<const char*> kPeriods = {"05 40 00",         "05 50 00", "04 00 > 05 36 00",
                                           "04 00 > 05 35 00", "05 10 00", "05 20 00"};

const Row kRows[] = {
    {0, {"08 00", "08 00", "08 05", "08 03", "08 12", "08 12", "08 02", "08 02", "08 02"}},
    {9, kTariffs},
    {18, kTariffs},
    {27, kTariffs},
    {36, kTariffs},
    {45, {"08 0D", "08 0D", "08 0D", "08 0D"}},
    // P, Q, S, power coefficient, angle, voltage, current
    {49, {"08 11 01", "08 11 05", "08 11 09", "08 11 31", "", "08 11 11", "08 11 21"}},
    {56, {"08 11 02", "08 11 06", "08 11 0A", "08 11 32", "", "08 11 12", "08 11 22"}},
    {63, {"08 11 03", "08 11 07", "08 11 0B", "08 11 33", "", "08 11 13", "08 11 23"}},
    {70, {"08 11 00", "08 11 04", "08 11 08", "08 11 30", "", "08 11 40"}},
    {76, {"08 11 A1", "08 11 A2", "08 11 A3", "08 11 A5", "08 11 A6", "08 11 A7", "08 11 A8"}},
    {83, {"08 11 15", "08 11 16", "08 11 17", "08 11 18", "08 11 90"}},
    {88, {"08 11 81", "08 11 82", "08 11 83", "08 11 85", "08 11 86", "08 11 87"}},
    {94, {"08 12", "08 09", "08 0B"}},
    {98, {"", "", "", "", ""}},
    {183, {"08 12", "08 09", ""}},
    {186, kPeriods},
    {192, kPeriods},
    {198, kPeriods},
    {204, kPeriods},
    {210, {"00", ""}},
    {212, {"08 20 00 00", "08 20 08 00"}},
    {214, {"08 20 04 01", "08 20 04 02", "08 20 04 03", "08 20 04 04", "08 20 04 00"}},
    {219, {"08 20 09 00", "08 20 09 01", "08 20 09 02", "08 20 09 03"}},
    {223, {"08 20 04 01", "08 20 04 02", "08 20 04 03", "08 20 04 04", "08 20 04 00"}},
    {228, {"08 20 04 11", "08 20 04 12", "08 20 04 13", "08 20 04 14", "08 20 04 10"}},
    {233, {"08 20 04 21", "08 20 04 22", "08 20 04 23", "08 20 04 24", "08 20 04 20"}},
    {238, {"08 20 04 31", "08 20 04 32", "08 20 04 33", "08 20 04 34", "08 20 04 30"}},
    {243, {"08 01"}},
};

std::map<std::uint32_t, std::string> ExpectedRequests() {
  std::map<std::uint32_t, std::string> expected;
  for (const Row& row : kRows) {
    for (std::uint32_t i = 0; i < row.bodies.size(); ++i) expected[row.firstTag + i] = row.bodies[i];
  }
  for (std::uint8_t record = 0; record < 20; ++record) {
    const Bytes body = {0x09, kLog, record};
    for (std::uint32_t i = 0; i < 4; ++i) expected[103U + 4U * record + i] = ToHex(body);
  }
  return expected;
}

/// Frames on the line, checked and without their addresses and checks.
std::string Sent(const ScriptedLine& line) {
  std::string text;
  for (const SentRequest& request : line.Requests()) {
    const std::span<const std::uint8_t> frame = request.bytes;
    EXPECT_EQ(WithCheck(Bytes(frame.begin(), frame.end() - 2)), request.bytes);
    EXPECT_EQ(0x0C, frame[0]);
    text += (text.empty() ? "" : " > ") + ToHex(frame.subspan(1, frame.size() - 3));
  }
  return text;
}

TEST(TagRequest, IsRightForEveryTag) {
  const std::map<std::uint32_t, std::string> expected = ExpectedRequests();
  EXPECT_EQ(243U, expected.size()) << "all but the time correction, which is never read";
  TestChannel channel({.retries = 1});
  // Only the low byte of an address goes out.
  const auto meter = channel.AddMeter(0x10C, 1, {.logRequest = kLog});
  channel.Line().OnRequest([](auto request) { return request[1] == 0x04 ? Frame("0C 30 15 10 03 21 06 12 00") : Bytes{}; });
  for (const auto& [number, bodies] : expected) {
    channel.Line().ClearRecords();
    CDeviceTag* const tag = channel.AddTag(meter, number);
    EXPECT_EQ(bodies.empty() ? 1U : 0U, ReadTag(channel.Protocol(), tag, Send::Request, meter)) << number;
    EXPECT_EQ(bodies, Sent(channel.Line())) << number;
  }
}

TEST(TagRequest, MonthComesFromTheMetersClock) {
  constexpr std::uint32_t kCurrent = 188;
  constexpr std::uint32_t kPrevious = 207;
  const struct {
    std::uint32_t tag;
    const char* clock;  // "" for silence
    const char* request;
  } rows[] = {
      {kCurrent, "0C 00 00 00 04 01 01 26 01", "0C 05 31 00"},
      {kPrevious, "0C 00 00 00 04 01 01 26 01", "0C 05 3C 00"},
      {kCurrent, "0C 59 59 23 04 31 12 26 01", "0C 05 3C 00"},
      {kPrevious, "0C 59 59 23 04 31 12 26 01", "0C 05 3B 00"},
      {kPrevious, "0C 00 00 00 07 01 02 26 00", "0C 05 31 00"},
      {kCurrent, "0C 00 00 00 07 01 10 26 00", "0C 05 3A 00"},
      {kCurrent, "", "0C 05 30 00"},
      {kPrevious, "", "0C 05 31 00"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.clock) + " -> " + row.request);
    TestChannel channel({.retries = 1});
    const auto meter = channel.AddMeter(12, 1);
    CDeviceTag* const tag = channel.AddTag(meter, row.tag);
    Expectation& clock = channel.Line().Expect("0C 04 00");
    if (*row.clock != 0) clock.Answer(row.clock);
    channel.Line().Expect(row.request).Answer("0C 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(1U, ReadTag(channel.Protocol(), tag, Send::Request, meter));
    EXPECT_EQ(kQualityGood, tag->Quality);
  }
}

TEST(TagRequest, SelectorIsLeftForOtherTags) {
  for (const std::uint32_t number : {0U, 211U, 243U, 0xFFFFFFFFU}) {
    std::uint8_t selector = 0x77;
    LimitSelector(number, selector);
    EXPECT_EQ(0x77, selector) << number;
  }
}

}  // namespace
}  // namespace ostrel::test
