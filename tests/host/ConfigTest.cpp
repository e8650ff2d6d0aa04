// The configuration file: what it gives, and what it says about mistakes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/session/Channel.h"
#include "host/session/Config.h"
#include "host/session/Failure.h"
#include "tests/support/TableFile.h"

namespace ostrel::host {
namespace {

constexpr const char* kWhole = R"(log = { file = "ostrel.log", limit_kb = 64 }
trace = { file = "trace.log", settings = "DBG_COMMON=1 FS=16" }
clock_correction_days = 7

[[channel]]
port = "COM1"
device = "/dev/ttyUSB0"
baud = 1200
parity = "odd"
retries = 4
poll_period_s = 6
timeout_ms = 700
pre_send_pause_ms = 8
late_guard_ms = 90
echo = true

  [[channel.meter]]
  name = "feeder-1"
  address = 12
  type = 1
  level1_password = "000000"
  level2_password = "222222"
  voltage_coefficient = 100
  current_coefficient = 20
  event_log = 3
  fail_hold_s = 30
  exchange = false
  tags = ["A+ Tariff Sum", "Power P *", 20210]

[[channel]]
port = "COM2"
device = "tcp:gateway:4001"
  [[channel.meter]]
  name = "feeder-2"
  address = 12
  type = "СЭТ-4ТМ.03"
)";

Config Sound() { return ParseConfig(kWhole, "site.toml"); }

TEST(Config, EveryKeyArrivesUpToTheHostsRecord) {
  const Config config = Sound();
  EXPECT_EQ("ostrel.log", config.logFile);
  EXPECT_EQ(64U, config.logLimitKb);
  EXPECT_EQ("trace.log", config.traceFile);
  EXPECT_EQ("DBG_COMMON=1 FS=16", config.traceSettings);
  EXPECT_EQ(7U, config.clockCorrectionDays);
  ASSERT_EQ(2U, config.channels.size());
  const ChannelConfig& channel = config.channels[0];
  EXPECT_EQ("COM1", channel.port);
  EXPECT_EQ("/dev/ttyUSB0", channel.device);
  EXPECT_EQ("odd", channel.parity);
  EXPECT_TRUE(channel.echo);
  const std::uint32_t numbers[] = {channel.baud,      channel.retries,        channel.pollPeriodSeconds,
                                   channel.timeoutMs, channel.preSendPauseMs, channel.lateGuardMs};
  EXPECT_THAT(numbers, testing::ElementsAre(1200, 4, 6, 700, 8, 90));
  ASSERT_EQ(1U, channel.meters.size());
  const MeterConfig& meter = channel.meters[0];
  EXPECT_EQ("feeder-1", meter.name);
  EXPECT_EQ(1U, std::get<std::uint32_t>(meter.type));
  ASSERT_EQ(3U, meter.tags.size());
  EXPECT_EQ("Power P *", meter.tags[1].text);
  EXPECT_EQ("20210", meter.tags[2].text);
  EXPECT_EQ(28U, meter.tags[2].place.line);
  const DeviceConfig record = MakeDeviceConfig(meter, 8);
  EXPECT_EQ(12U, record.Address);
  EXPECT_EQ(8U, record.TypeId);
  EXPECT_STREQ("000000", record.Level1Password);
  EXPECT_STREQ("222222", record.Level2Password);
  EXPECT_EQ(3U, record.LogRequest);
  EXPECT_EQ(30000U, record.FailHoldTimer.period);
  EXPECT_EQ(100U, record.KU);
  EXPECT_EQ(20U, record.KI);
  EXPECT_EQ(0U, record.ExchangeOn);
  EXPECT_EQ(0U, record.LinkState);
  EXPECT_EQ(12U, PortNumberOf("COM12"));
  for (const char* const text : {"CO", "line-a"}) EXPECT_EQ(0U, PortNumberOf(text)) << text;
}

TEST(Config, WhatIsLeftOutHasItsDefault) {
  const ChannelConfig channel = Sound().channels[1];
  EXPECT_EQ("none", channel.parity);
  EXPECT_FALSE(channel.echo);
  const std::uint32_t numbers[] = {channel.baud,      channel.retries,        channel.pollPeriodSeconds,
                                   channel.timeoutMs, channel.preSendPauseMs, channel.lateGuardMs};
  EXPECT_THAT(numbers, testing::ElementsAre(9600, 3, 5, 500, 0, 100));
  const MeterConfig& meter = channel.meters.at(0);
  EXPECT_EQ("СЭТ-4ТМ.03", std::get<std::string>(meter.type));
  EXPECT_EQ(60U, meter.failHoldSeconds);
  EXPECT_TRUE(meter.exchange);
  EXPECT_TRUE(meter.tags.empty());
}

/// The message that the text brings, "accepted" when none.
std::string MessageOf(const std::string& text) {
  try {
    (void)ParseConfig(text, "site.toml");
    return "accepted";
  } catch (const Failure& failure) {
    EXPECT_EQ(kExitUsage, failure.Code());
    return failure.what();
  }
}

std::string WithLineEnds(std::string text) {
  for (std::size_t at; (at = text.find("\\n")) != std::string::npos;) text.replace(at, 2, "\n");
  return text;
}

TEST(Config, MistakesNameFileLineAndKey) {
  for (const test::TableRow& row : test::ReadTable("host/config_mistakes.tsv", 3)) {
    std::string text = kWhole;
    const std::string line = WithLineEnds(row[0]);
    const std::size_t at = text.find(line);
    ASSERT_NE(std::string::npos, at) << line;
    EXPECT_EQ(row[2], MessageOf(text.replace(at, line.size(), WithLineEnds(row[1])))) << row[1];
  }
  EXPECT_THAT(MessageOf("clock_correction_days = 7\n[[channel\n"), testing::StartsWith("site.toml:2: "));
  EXPECT_NE("accepted", MessageOf(""));
  EXPECT_THROW((void)ReadConfig("/nowhere/site.toml"), Failure);
}

}  // namespace
}  // namespace ostrel::host
