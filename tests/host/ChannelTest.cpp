// A channel of the host over the real plug-in and a line inside this process, on the virtual clock.
#include <gtest/gtest.h>

#include <thread>

#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/CProtocol.h"
#include "host/session/Channel.h"
#include "host/session/ClientWrite.h"
#include "host/session/Failure.h"
#include "tests/host/FakeStream.h"

namespace ostrel::host {
namespace {

class StaticFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override {
    return (new CProtocol)->QueryInterface(iid, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

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

  ClockInPlace time;
  StaticFactory factory;
  Plugin plugin{ComPointer<IClassFactory>(&factory)};
  HostServices services{{}};
};

TEST_F(ChannelTest, ReadsSelectedTagsWithGoodQuality) {
  Channel channel(plugin, services,
                  MakeChannel({MakeMeter("a", 12, 1, {"A+ Tariff Sum", "Voltage Phase ?", "ConnectionState", "Meter Type"})}));
  ASSERT_EQ(6U, channel.Meters().front().selected.size());
  channel.Start();
  const std::vector<PassReport> reports = TakePasses(channel, 1);
  channel.Stop();
  ASSERT_EQ(1U, reports.size());
  EXPECT_EQ(1U, reports[0].pass);
  const MeterReadings& readings = reports[0].meters.at(0);
  for (std::size_t i = 0; i < readings.readings.size(); ++i) {
    const std::string& name = readings.meter->tags[readings.tags[i]].definition.name;
    EXPECT_EQ(192U, readings.readings[i].quality) << name;
    if (name == "ConnectionState") {
      EXPECT_EQ(Value(true), readings.readings[i].value);
    }
    if (name == "Meter Type") {
      EXPECT_EQ(Value(std::string("СЭТ-4ТМ.03")), readings.readings[i].value);
    }
  }
  EXPECT_EQ("", services.PortProblem("COM3"));
  EXPECT_EQ(0U, services.PortsOut()) << "stopping closes the port";
}

struct QuietCase {
  const char* name;
  ChannelConfig config;
};

TEST_F(ChannelTest, PassesAreSeenWhenNothingIsOnTheLine) {
  MeterConfig off = MakeMeter("off", 1, 1, {"A+ Tariff Sum"});
  off.exchange = false;
  ChannelConfig closed = MakeChannel({MakeMeter("unreachable", 1, 1, {"A+ Tariff Sum"})});
  closed.device = "/nowhere/at/all";
  const QuietCase cases[] = {
      {"no meters", MakeChannel({})}, {"exchange off", MakeChannel({off})}, {"port cannot be opened", closed}};
  for (const QuietCase& row : cases) {
    SCOPED_TRACE(row.name);
    Channel channel(plugin, services, row.config);
    channel.Start();
    const std::vector<PassReport> reports = TakePasses(channel, 3);
    channel.Stop();
    ASSERT_EQ(3U, reports.size());
    EXPECT_EQ(3U, reports[2].pass);
    if (row.config.meters.empty()) continue;
    const TagReading& reading = reports[2].meters.at(0).readings.at(0);
    EXPECT_EQ(row.config.meters[0].exchange ? 12 : 64, reading.quality);
    EXPECT_EQ(Value(0.0F), reading.value);
  }
  EXPECT_NE("", services.PortProblem("COM3"));
}

TEST_F(ChannelTest, PassesAreNotCountedTwice) {
  Channel channel(plugin, services, MakeChannel({}));
  PassReport report;
  EXPECT_FALSE(channel.TakePass(report)) << "not started";
  time.clock.SetLimit(5);
  channel.Start();
  time.clock.WaitForLimit();
  EXPECT_FALSE(channel.TakePass(report)) << "before the first pass";
  // Each pass begins 10 ms after the wait of the one before; the period is a second in steps of 100 ms.
  time.clock.SetLimit(500);
  time.clock.WaitForLimit();
  EXPECT_TRUE(channel.TakePass(report));
  EXPECT_FALSE(channel.TakePass(report));
  time.clock.SetLimit(1500);
  time.clock.WaitForLimit();
  EXPECT_TRUE(channel.TakePass(report));
  EXPECT_EQ(2U, report.pass);
  EXPECT_FALSE(channel.TakePass(report));
  time.clock.ClearLimit();
  channel.Stop();
}

TEST_F(ChannelTest, ConfigurationMistakesThatOnlyThePlugInKnows) {
  const auto message = [&](const MeterConfig& meter) -> std::string {
    try {
      const Channel channel(plugin, services, MakeChannel({meter}));
      return "accepted";
    } catch (const Failure& failure) {
      return failure.what();
    }
  };
  EXPECT_EQ("f:3: tags: the meter has no tag \"Frequencyy\"; did you mean \"Frequency\"?",
            message(MakeMeter("a", 1, 1, {"Frequency", "Frequencyy"})));
  // The type has one phase only.
  EXPECT_EQ("f:3: tags: no tag fits \"Voltage Phase 2*\"", message(MakeMeter("a", 1, 12, {"Voltage Phase 2*"})));
  EXPECT_NE(std::string::npos,
            message(MakeMeter("a", 1, 4, {})).find("there is no meter type 4; there are 0, 1, 2, 3, 6, 7, 8, 11, 12"));
  MeterConfig named = MakeMeter("a", 1, 1, {});
  named.type = "СЭТ-4ТМ.3";
  EXPECT_NE(std::string::npos, message(named).find("did you mean \"СЭТ-4ТМ.03\""));
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
