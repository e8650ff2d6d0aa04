// The poll thread on the virtual clock: pacing, marking, link messages, stopping, and thirty days of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "Protocol/model/TagCatalogue.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::test {
namespace {

using ::testing::ElementsAre;

/// Runs the thread up to exact moments.
class Poll {
 public:
  explicit Poll(const LineOptions& options = {}) : channel(options) {}
  ~Poll() { Stop(); }

  std::uint32_t AddMeter(std::uint8_t address, const std::vector<std::uint32_t>& tags, const DeviceOptions& options = {}) {
    const std::uint32_t device = channel.AddMeter(address, 1, options);
    for (const std::uint32_t number : tags) channel.AddTag(device, number);
    return device;
  }
  void Silence(std::uint8_t address, bool silent = true) { channel.Line().ReplyAlways(ToHex(Bytes{address}), silent ? "" : "*"); }

  /// Lets the thread go on to this moment and waits until it stands there.
  void RunTo(std::int64_t elapsedMs) {
    channel.Clock().SetLimit(elapsedMs);
    if (channel.Protocol().PollThread == nullptr) {
      ASSERT_EQ(1U, channel.Protocol().Start());
    }
    channel.Clock().WaitForLimit();
  }

  void Stop() {
    channel.Protocol().SignalStop();
    channel.Clock().ClearLimit();
    channel.Protocol().Stop();
  }

  CDeviceTag& Tag(std::uint32_t device, std::uint32_t number) {
    auto& tags = channel.Entry(device).Tags;
    return **std::find_if(tags.begin(), tags.end(), [&](const CDeviceTag* tag) { return tag->TagNumber == number; });
  }

  /// Of all the meter's tags.
  std::vector<int> Qualities(std::uint32_t device) {
    std::vector<int> qualities;
    for (const CDeviceTag* const tag : channel.Entry(device).Tags) qualities.push_back(tag->Quality);
    return qualities;
  }

  SimulatedChannel channel;
};

// An energy, two texts, the state of the connection, which is good either way, and the switch of the exchange.
const std::vector<std::uint32_t> kTags = {9, 95, 183, 210, 211};
constexpr int kGoodTag = kQualityGood;
constexpr int kLost = kQualityDeviceFailure;
constexpr int kOff = kQualityUncertain;

TEST(PollThread, StartsOnceAndOpensThePortWithTheFirstRequest) {
  Poll poll;
  poll.AddMeter(1, kTags);
  poll.RunTo(5);
  EXPECT_EQ(1U, poll.channel.Protocol().Start());
  EXPECT_TRUE(poll.channel.Line().Calls().empty());
  poll.RunTo(2000);
  EXPECT_EQ(1U, poll.channel.Protocol().PortOpen);
  poll.Stop();
  EXPECT_EQ(0U, poll.channel.Protocol().PortOpen);
  EXPECT_EQ(0, poll.channel.Line().Unreleased());
}

TEST(PollThread, EndsWithItsObject) {
  SimulatedChannel channel;
  channel.AddTag(channel.AddMeter(1, 1), 9);
  ASSERT_EQ(1U, channel.Protocol().Start());
  while (channel.Line().RequestCount() == 0) std::this_thread::yield();
}

TEST(PollThread, PacesPassesByThePeriod) {
  Poll poll({.pollPeriodSeconds = 5});
  poll.AddMeter(1, {75});
  poll.RunTo(20500);
  // A pass begins 10 ms after the one before it ended; its waiting ends on a step of 100 ms.
  std::vector<std::uint32_t> starts;
  for (const auto& request : poll.channel.Line().Requests()) {
    if (request.text == "01 08 11 40") starts.push_back(request.tick);
  }
  EXPECT_THAT(starts, ElementsAre(15, 5040, 10065, 15090, 20115));
}

TEST(PollThread, MarksALostMeterAndTellsOfItsReturn) {
  Poll poll({.retries = 1, .pollPeriodSeconds = 5});
  const auto lost = poll.AddMeter(1, kTags);
  const auto other = poll.AddMeter(2, kTags);
  poll.RunTo(3000);
  EXPECT_EQ(std::vector(5, kGoodTag), poll.Qualities(lost));
  EXPECT_EQ(1, poll.Tag(lost, 210).Value.boolVal);
  const FILETIME answered = poll.Tag(lost, 210).Timestamp;

  poll.Silence(1);
  poll.RunTo(9000);
  EXPECT_THAT(poll.Qualities(lost), ElementsAre(kLost, kLost, kLost, kGoodTag, kLost));
  EXPECT_EQ(std::vector(5, kGoodTag), poll.Qualities(other));
  EXPECT_EQ(0.0F, float{poll.Tag(lost, 9).Value.fltVal});
  EXPECT_EQ(0, poll.Tag(lost, 210).Value.boolVal);
  EXPECT_EQ(answered.dwLowDateTime, poll.Tag(lost, 210).Timestamp.dwLowDateTime);
  EXPECT_NE(answered.dwLowDateTime, poll.Tag(lost, 9).Timestamp.dwLowDateTime);
  EXPECT_EQ(kLinkLost, poll.channel.Entry(lost).LinkState);

  poll.Silence(1, false);
  poll.channel.Line().ClearRecords();
  poll.RunTo(20000);
  EXPECT_EQ(std::vector(5, kGoodTag), poll.Qualities(lost));
  EXPECT_EQ(kLinked, poll.channel.Entry(lost).LinkState);
  // Twice: in the first pass that succeeds, and because the link's return asks for it once more in the next.
  const auto texts = poll.channel.Line().RequestTexts();
  EXPECT_EQ(2 * 2, std::count(texts.begin(), texts.end(), "01 08 02"));
  EXPECT_THAT(poll.channel.LogLines(),
              ElementsAre("COM3 ПРИБОР:1 Нет ответа от устройства", "COM3 ПРИБОР:1 Восстановление связи"));
}

TEST(PollThread, ShowsAMeterAsUncertainWhileItsExchangeIsOff) {
  Poll poll;
  const auto device = poll.AddMeter(1, kTags, {.exchangeOn = 0});
  poll.RunTo(3000);
  EXPECT_THAT(poll.Qualities(device), ElementsAre(kOff, kOff, kOff, kOff, kGoodTag));
  EXPECT_EQ(0, poll.Tag(device, 211).Value.boolVal);
  EXPECT_EQ(0U, poll.channel.Line().RequestCount());
  // Each time that it is switched on, its factors are read anew before anything is scaled with them.
  for (std::int64_t time = 3000; time < 30000; time += 20000) {
    LeaveWrite(poll.Tag(device, 211), 1);
    poll.channel.Line().ClearRecords();
    poll.RunTo(time + 10000);
    EXPECT_EQ("01 08 02", poll.channel.Line().RequestTexts().at(0));
    EXPECT_EQ(kQualityGood, poll.Tag(device, 9).Quality);
    LeaveWrite(poll.Tag(device, 211), 0);
    poll.RunTo(time + 20000);
    EXPECT_EQ(kQualityUncertain, poll.Tag(device, 9).Quality);
  }
}

TEST(PollThread, TreatsEveryMeterAsLostWhileTheChannelIsOff) {
  Poll poll;
  const auto device = poll.AddMeter(1, kTags);
  StoreFlag(poll.channel.Protocol().GetChannel()->ExchangeEnabled, 0);
  poll.RunTo(3000);
  EXPECT_THAT(poll.Qualities(device), ElementsAre(kLost, kLost, kLost, kGoodTag, kLost));
  EXPECT_EQ(0, poll.Tag(device, 210).Value.boolVal);
  EXPECT_EQ(0U, poll.channel.Line().RequestCount());
}

TEST(PollThread, CallsAHeldMeterRestoredWhileItsTagsStayBad) {
  Poll poll({.retries = 1, .pollPeriodSeconds = 5});
  const auto device = poll.AddMeter(1, {102, 9, 95}, {.failHoldMs = 60000, .logRequest = 5});
  poll.Silence(1);
  poll.RunTo(3000);
  const std::size_t asked = poll.channel.Line().RequestCount();
  poll.RunTo(8000);
  EXPECT_EQ(asked, poll.channel.Line().RequestCount());
  EXPECT_EQ(kLinked, poll.channel.Entry(device).LinkState);
  EXPECT_EQ(5, poll.channel.Entry(device).LogNumber) << "the log that is asked for";
  EXPECT_EQ(kQualityDeviceFailure, poll.Tag(device, 9).Quality);
  EXPECT_THAT(poll.channel.LogLines(),
              ElementsAre("COM3 ПРИБОР:1 Нет ответа от устройства", "COM3 ПРИБОР:1 Восстановление связи"));
}

TEST(PollThread, StopsBetweenTwoTags) {
  Poll poll;
  poll.AddMeter(1, {9, 10, 11, 12});
  poll.channel.Line().OnRequest([&](const std::string& request) {
    if (request == "01 05 00 02") poll.channel.Protocol().SignalStop();
  });
  ASSERT_EQ(1U, poll.channel.Protocol().Start());
  poll.channel.Protocol().Stop();
  // Stop may come first; then nothing is asked at all.
  const auto texts = poll.channel.Line().RequestTexts();
  EXPECT_EQ(0, std::count(texts.begin(), texts.end(), "01 05 00 03"));
}

TEST(PollThread, StartsAnewWhenItHasEndedByItself) {
  Poll poll;
  poll.AddMeter(1, {9});
  CProtocol& protocol = poll.channel.Protocol();
  poll.RunTo(1000);
  const std::size_t asked = poll.channel.Line().RequestCount();
  EXPECT_NE(0U, asked);
  protocol.SignalStop();
  poll.channel.Clock().ClearLimit();
  while (protocol.PollEnded == 0) std::this_thread::yield();
  poll.channel.Clock().SetLimit(poll.channel.Clock().Elapsed() + 1000);
  EXPECT_EQ(1U, protocol.Start());
  poll.channel.Clock().WaitForLimit();
  EXPECT_LT(asked, poll.channel.Line().RequestCount());
}

// Whatever the host's threads do to it at once, the thread runs after the last Start and is gone after the last Stop.
TEST(PollThread, ObeysSeveralThreadsOfTheHost) {
  Poll poll({.pollPeriodSeconds = 1});
  poll.AddMeter(1, {9});
  poll.channel.Line().keepsRecords = false;
  CProtocol& protocol = poll.channel.Protocol();
  const PortSettings settings = MakePortSettings({.pollPeriodSeconds = 1});
  const std::function<void()> operations[] = {[&] { protocol.Start(); }, [&] { protocol.Stop(); }, [&] { protocol.SignalStop(); },
                                              [&] { protocol.SetPortSettings(&poll.channel.Context(), &settings); },
                                              [&] { protocol.CanPollDevice(0); }};
  std::vector<std::thread> hosts;
  for (int first = 0; first < 3; ++first) {
    hosts.emplace_back([&operations, first] {
      for (int i = 0; i < 300; ++i) operations[static_cast<std::size_t>(first + i) % std::size(operations)]();
    });
  }
  for (std::thread& host : hosts) host.join();
  const std::size_t asked = poll.channel.Line().RequestCount();
  EXPECT_EQ(1U, protocol.Start());
  while (poll.channel.Line().RequestCount() == asked) std::this_thread::yield();
  EXPECT_EQ(1U, protocol.Stop());
  EXPECT_EQ(nullptr, protocol.PollThread);
  EXPECT_EQ(0, poll.channel.Line().Unreleased());
}

TEST(PollThread, CountsItsRequestsExactlyOverThirtyDaysAndAWrapOfTheTickCount) {
  constexpr std::int64_t kThirtyDaysMs = 30LL * 24 * 3600 * 1000;
  Poll poll({.pollPeriodSeconds = 3600, .startTick = 0xFFFFFFFFU - 15U * 24 * 3600 * 1000});
  const auto device = poll.AddMeter(1, {}, {.logRequest = 1, .simulated = "channel_timeout_s=4000"});
  for (std::uint32_t number = 0; number < kDaTagCount; ++number) poll.channel.AddTag(device, number);
  poll.channel.Line().keepsRecords = false;
  poll.RunTo(kThirtyDaysMs);
  // A pass: 10 ms, the cycle with 5 + 200 ms of pauses, 10 ms, then steps of 100 ms until an hour has passed: 3600,025 ms. In
  // thirty days 720 passes begin. The first asks 126 times and every later one 123 times.
  EXPECT_EQ(126U + 719U * 123U, poll.channel.Line().RequestCount());
  EXPECT_EQ(kQualityGood, poll.Tag(device, 9).Quality);
  EXPECT_TRUE(poll.channel.LogLines().empty());
}

}  // namespace
}  // namespace ostrel::test
