// A channel of the host over the real plug-in and a line inside this process, on the virtual clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "host/session/Channel.h"
#include "host/session/ClientWrite.h"
#include "tests/host/FailureOf.h"
#include "tests/support/PlugInFactory.h"
#include "tests/support/SimulatedChannel.h"

namespace ostrel::host {
namespace {

using ::testing::HasSubstr;

MeterConfig MakeMeter(const char* name, std::uint32_t address, std::uint32_t type, const std::vector<const char*>& tags) {
  MeterConfig meter;
  meter.name = name;
  meter.address = address;
  meter.type = type;
  meter.level1Password = "000000";
  meter.level2Password = "222222";
  for (const char* const tag : tags) meter.tags.push_back({.text = tag, .place = {.file = "f", .line = 3, .key = "tags"}});
  return meter;
}

ChannelConfig MakeChannel(const std::vector<MeterConfig>& meters) {
  ChannelConfig channel;
  channel.port = "COM3";
  channel.device = "simulated";
  channel.pollPeriodSeconds = 1;
  channel.meters = meters;
  return channel;
}

class ChannelTest : public testing::Test {
 protected:
  // Polls until so many passes have been taken.
  static std::vector<PassReport> TakePasses(Channel& channel, std::size_t count) {
    std::vector<PassReport> reports;
    PassReport report;
    for (int looks = 0; looks < 200'000 && reports.size() < count; ++looks) {
      if (channel.TakePass(report)) reports.push_back(report);
      std::this_thread::yield();
    }
    return reports;
  }

  test::ClockInPlace time;
  test::PlugInFactory factory;
  Plugin plugin{ComPointer<IClassFactory>(&factory)};
  HostServices services{{}};
};

TEST_F(ChannelTest, PassesAreSeenWhenNothingIsOnTheLine) {
  MeterConfig off = MakeMeter("off", 1, 1, {"A+ Tariff Sum"});
  off.exchange = false;
  ChannelConfig closed = MakeChannel({MakeMeter("unreachable", 1, 1, {"A+ Tariff Sum"})});
  closed.device = "/nowhere/at/all";
  for (const auto& [config, quality] : {std::pair{MakeChannel({}), 0}, {MakeChannel({off}), 64}, {closed, 12}}) {
    Channel channel(plugin, services, config);
    channel.Start();
    const std::vector<PassReport> reports = TakePasses(channel, 3);
    channel.Stop();
    ASSERT_EQ(3U, reports.size());
    EXPECT_EQ(3U, reports[2].pass);
    if (config.meters.empty()) continue;
    const TagReading& reading = reports[2].meters.at(0).readings.at(0);
    EXPECT_EQ(quality, reading.quality);
    EXPECT_EQ(Value{}, reading.value) << "what the plug-in zeroed is no measurement";
  }
  EXPECT_NE("", services.PortProblem("COM3"));
  EXPECT_EQ(0U, services.PortsOut()) << "stopping closes the port";
}

TEST_F(ChannelTest, PassesAreNotCountedTwice) {
  Channel channel(plugin, services, MakeChannel({}));
  PassReport report;
  EXPECT_FALSE(channel.TakePass(report)) << "not started";
  time.SetLimit(5);
  channel.Start();
  time.WaitForLimit();
  EXPECT_FALSE(channel.TakePass(report)) << "before the first pass";
  // Each pass begins 10 ms after the wait of the one before; the period is a second in steps of 100 ms.
  time.SetLimit(500);
  time.WaitForLimit();
  EXPECT_TRUE(channel.TakePass(report));
  EXPECT_FALSE(channel.TakePass(report));
  time.SetLimit(1500);
  time.WaitForLimit();
  EXPECT_TRUE(channel.TakePass(report));
  EXPECT_EQ(2U, report.pass);
  EXPECT_FALSE(channel.TakePass(report));
  time.ClearLimit();
  channel.Stop();
}

TEST_F(ChannelTest, ConfigurationMistakesThatOnlyThePlugInKnows) {
  const auto message = [&](const MeterConfig& meter) {
    return FailureOf([&] { const Channel channel(plugin, services, MakeChannel({meter})); });
  };
  EXPECT_EQ("f:3: tags: the meter has no tag \"Frequencyy\"; did you mean \"Frequency\"?",
            message(MakeMeter("a", 1, 1, {"Frequency", "Frequencyy"})));
  EXPECT_EQ("f:3: tags: no tag fits \"Voltage Phase 2*\"", message(MakeMeter("a", 1, 12, {"Voltage Phase 2*"}))) << "one phase";
  EXPECT_THAT(message(MakeMeter("a", 1, 4, {})), HasSubstr("there is no meter type 4; there are 0, 1, 2, 3, 6, 7, 8, 11, 12"));
  MeterConfig named = MakeMeter("a", 1, 1, {});
  named.type = "СЭТ-4ТМ.3";
  EXPECT_THAT(message(named), HasSubstr("did you mean \"СЭТ-4ТМ.03\""));
}

TEST_F(ChannelTest, WriteToASilentMeterIsGivenUpAsUnanswered) {
  ChannelConfig config = MakeChannel({MakeMeter("a", 12, 8, {"LimitPowerWeekDay"})});
  config.device = "/nowhere/at/all";
  Channel channel(plugin, services, config);
  Meter& meter = channel.Meters().front();
  channel.Start();
  const std::size_t tag = meter.FindTag("LimitPowerWeekDay");
  ClientWrite write(channel, meter, tag, "5000");
  ASSERT_EQ(2U, TakePasses(channel, 2).size());
  EXPECT_FALSE(write.AfterPass());
  const WriteReport report = write.GiveUp();
  channel.Stop();
  EXPECT_EQ(WriteOutcome::Unanswered, report.outcome);
  EXPECT_EQ(0U, meter.tags[tag].tag->WritePending) << "nothing is left behind on the tag";
}

}  // namespace
}  // namespace ostrel::host
