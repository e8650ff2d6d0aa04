// The configuration file: what it gives, and what it says about mistakes.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/session/Channel.h"
#include "host/session/Config.h"
#include "tests/host/FailureOf.h"
#include "tests/support/TableFile.h"

namespace ostrel::host {
namespace {

const std::string kWhole = test::ReadBeside("host/site.toml");

Config Sound() { return ParseConfig(kWhole, "site.toml"); }

/// Everything of a channel but its meters.
std::string TextOf(const ChannelConfig& channel) {
  return fmt::format("{} {} {} {} tries {} period {} timeout {} pause {} guard {} echo {}", channel.port, channel.device,
                     channel.baud, channel.parity, channel.retries, channel.pollPeriodSeconds, channel.timeoutMs,
                     channel.preSendPauseMs, channel.lateGuardMs, channel.echo);
}

std::string TextOf(const DeviceConfig& record) {
  return fmt::format("{} type {} passwords {} {} log {} hold {} KU {} KI {} on {} link {}", +record.Address, +record.TypeId,
                     record.Level1Password, record.Level2Password, +record.LogRequest, +record.FailHoldTimer.period, +record.KU,
                     +record.KI, +record.ExchangeOn, +record.LinkState);
}

TEST(Config, EveryKeyArrivesUpToTheHostsRecord) {
  const Config config = Sound();
  EXPECT_EQ("ostrel.log 64 trace.log DBG_COMMON=1 FS=16 7",
            fmt::format("{} {} {} {} {}", config.logFile, config.logLimitKb, config.traceFile, config.traceSettings,
                        config.clockCorrectionDays));
  ASSERT_EQ(2U, config.channels.size());
  EXPECT_EQ("COM1 /dev/ttyUSB0 1200 odd tries 4 period 6 timeout 700 pause 8 guard 90 echo true", TextOf(config.channels[0]));
  const MeterConfig& meter = config.channels[0].meters.at(0);
  EXPECT_EQ("feeder-1", meter.name);
  EXPECT_EQ(1U, std::get<std::uint32_t>(meter.type));
  ASSERT_EQ(3U, meter.tags.size());
  EXPECT_EQ("Power P * 20210 28", meter.tags[1].text + fmt::format(" {} {}", meter.tags[2].text, meter.tags[2].place.line));
  EXPECT_EQ("12 type 8 passwords 000000 222222 log 3 hold 30000 KU 100 KI 20 on 0 link 0", TextOf(MakeDeviceConfig(meter, 8)));
  EXPECT_EQ(12U, PortNumberOf("COM12"));
  for (const char* const text : {"CO", "line-a"}) EXPECT_EQ(0U, PortNumberOf(text)) << text;
}

TEST(Config, WhatIsLeftOutHasItsDefault) {
  const ChannelConfig channel = Sound().channels[1];
  EXPECT_EQ("COM2 tcp:gateway:4001 9600 none tries 3 period 5 timeout 500 pause 0 guard 100 echo false", TextOf(channel));
  const MeterConfig& meter = channel.meters.at(0);
  EXPECT_EQ("СЭТ-4ТМ.03", std::get<std::string>(meter.type));
  EXPECT_TRUE(meter.tags.empty());
  EXPECT_EQ("12 type 3 passwords 000000  log 0 hold 60000 KU 1 KI 1 on 1 link 0", TextOf(MakeDeviceConfig(meter, 3)));
}

std::string MessageOf(const std::string& text) {
  return FailureOf([&] { (void)ParseConfig(text, "site.toml"); });
}

TEST(Config, MistakesNameFileLineAndKey) {
  for (const test::TableRow& row : test::ReadTable("host/config_mistakes.tsv", 3)) {
    std::string text = kWhole;
    const std::string line = test::WithLineEnds(row[0]);
    const std::size_t at = text.find(line);
    ASSERT_NE(std::string::npos, at) << line;
    EXPECT_EQ(row[2], MessageOf(text.replace(at, line.size(), test::WithLineEnds(row[1])))) << row[1];
  }
  EXPECT_THAT(MessageOf("clock_correction_days = 7\n[[channel\n"), testing::StartsWith("site.toml:2: "));
  EXPECT_NE("accepted", MessageOf(""));
  EXPECT_THROW((void)ReadConfig("/nowhere/site.toml"), Failure);
}

}  // namespace
}  // namespace ostrel::host
