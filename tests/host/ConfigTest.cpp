// The configuration file: what it gives, and what it says about mistakes.
#include <gtest/gtest.h>

#include <string>

#include "host/session/Config.h"
#include "host/session/Failure.h"

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

TEST(Config, EveryKeyArrives) {
  const Config config = ParseConfig(kWhole, "site.toml");
  EXPECT_EQ("ostrel.log", config.logFile);
  EXPECT_EQ(64U, config.logLimitKb);
  EXPECT_EQ("trace.log", config.traceFile);
  EXPECT_EQ("DBG_COMMON=1 FS=16", config.traceSettings);
  EXPECT_EQ(7U, config.clockCorrectionDays);
  ASSERT_EQ(2U, config.channels.size());
  const ChannelConfig& channel = config.channels[0];
  EXPECT_EQ("COM1", channel.port);
  EXPECT_EQ("/dev/ttyUSB0", channel.device);
  EXPECT_EQ(1200U, channel.baud);
  EXPECT_EQ("odd", channel.parity);
  EXPECT_EQ(4U, channel.retries);
  EXPECT_EQ(6U, channel.pollPeriodSeconds);
  EXPECT_EQ(700U, channel.timeoutMs);
  EXPECT_EQ(8U, channel.preSendPauseMs);
  EXPECT_EQ(90U, channel.lateGuardMs);
  EXPECT_TRUE(channel.echo);
  ASSERT_EQ(1U, channel.meters.size());
  const MeterConfig& meter = channel.meters[0];
  EXPECT_EQ("feeder-1", meter.name);
  EXPECT_EQ(12U, meter.address);
  EXPECT_EQ(1U, std::get<std::uint32_t>(meter.type));
  EXPECT_EQ("000000", meter.level1Password);
  EXPECT_EQ("222222", meter.level2Password);
  EXPECT_EQ(100U, meter.voltageCoefficient);
  EXPECT_EQ(20U, meter.currentCoefficient);
  EXPECT_EQ(3U, meter.eventLog);
  EXPECT_EQ(30U, meter.failHoldSeconds);
  EXPECT_FALSE(meter.exchange);
  ASSERT_EQ(3U, meter.tags.size());
  EXPECT_EQ("Power P *", meter.tags[1].text);
  EXPECT_EQ("20210", meter.tags[2].text);
  EXPECT_EQ(28U, meter.tags[2].place.line);
}

TEST(Config, WhatIsLeftOutHasItsDefault) {
  const ChannelConfig channel = ParseConfig(kWhole, "site.toml").channels[1];
  EXPECT_EQ(9600U, channel.baud);
  EXPECT_EQ("none", channel.parity);
  EXPECT_EQ(3U, channel.retries);
  EXPECT_EQ(5U, channel.pollPeriodSeconds);
  EXPECT_EQ(500U, channel.timeoutMs);
  EXPECT_EQ(0U, channel.preSendPauseMs);
  EXPECT_EQ(100U, channel.lateGuardMs);
  EXPECT_FALSE(channel.echo);
  const MeterConfig& meter = channel.meters.at(0);
  EXPECT_EQ("СЭТ-4ТМ.03", std::get<std::string>(meter.type));
  EXPECT_EQ(60U, meter.failHoldSeconds);
  EXPECT_TRUE(meter.exchange);
  EXPECT_TRUE(meter.tags.empty());
}

/// A change to one line of the whole file above, and the message that it brings.
struct MistakeCase {
  const char* line;
  const char* changed;
  const char* message;
};

TEST(Config, MistakesNameFileLineAndKey) {
  const MistakeCase cases[] = {
      {"baud = 1200", "baud = \"fast\"", "site.toml:8: channel.baud: must be a whole number"},
      {"baud = 1200", "baud = 14400",
       "site.toml:8: channel.baud: must be one of 300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, not 14400"},
      {"baud = 1200", "bauds = 1200", "site.toml:8: channel.bauds: unknown key; did you mean \"baud\"?"},
      {"parity = \"odd\"", "parity = \"Odd\"",
       "site.toml:9: channel.parity: must be one of none, even, odd, mark, space, not \"Odd\""},
      {"retries = 4", "retries = 65536", "site.toml:10: channel.retries: must be from 1 to 65535, not 65536"},
      {"retries = 4", "retries = 0", "site.toml:10: channel.retries: must be from 1 to 65535, not 0"},
      {"timeout_ms = 700", "timeout_ms = 0", "site.toml:12: channel.timeout_ms: must be from 1 to 600000, not 0"},
      {"device = \"tcp:gateway:4001\"", "device = \"/dev/ttyUSB0\"",
       "site.toml:32: channel.device: is already the device of COM1"},
      {"device = \"tcp:gateway:4001\"", "device = \"COM3\"",
       "site.toml:32: channel.device: is a name of Windows; here it is a path such as /dev/ttyUSB0"},
      {"device = \"tcp:gateway:4001\"", "device = \"rfc2217:gateway:4001\"",
       "site.toml:32: channel.device: \"rfc2217:\" is no kind of device: a path, tcp:HOST:PORT or simulated"},
      {"  name = \"feeder-2\"", "  name = \"feeder\\n2\"", "site.toml:34: channel.meter.name: must not hold control characters"},
      {"file = \"trace.log\"", "file = \"/nowhere/trace.log\"", "site.toml:2: trace.file: cannot be written"},
      {"poll_period_s = 6", "poll_period_s = 4294968",
       "site.toml:11: channel.poll_period_s: must be from 0 to 4294967, not 4294968"},
      {"timeout_ms = 700", "timeout_ms = 0.5", "site.toml:12: channel.timeout_ms: must be a whole number"},
      {"echo = true", "echo = 1", "site.toml:15: channel.echo: must be true or false"},
      {"port = \"COM1\"", "port = \"COM1234567\"", "site.toml:6: channel.port: is longer than 9 characters"},
      {"port = \"COM1\"", "port = \"\"", "site.toml:6: channel.port: must not be empty"},
      {"port = \"COM2\"", "port = \"COM1\"", "site.toml:31: channel.port: \"COM1\" is already the name of another channel"},
      {"device = \"/dev/ttyUSB0\"", "", "site.toml:5: channel.device: is missing"},
      {"device = \"tcp:gateway:4001\"", "device = \"tcp:gateway\"",
       "site.toml:32: channel.device: must be tcp:HOST:PORT with a port number from 1 to 65535"},
      {"  name = \"feeder-2\"", "  name = \"feeder-1\"",
       "site.toml:34: channel.meter.name: \"feeder-1\" is already the name of another meter"},
      {"  name = \"feeder-2\"", "", "site.toml:33: channel.meter.name: is missing"},
      {"  address = 12\n  type = 1", "  address = 256\n  type = 1",
       "site.toml:19: channel.meter.address: must be from 0 to 255, not 256"},
      {"  type = 1\n", "  type = 1.5\n", "site.toml:20: channel.meter.type: must be a type id or a display name in quotes"},
      {"  level1_password = \"000000\"", "  level1_password = \"12345\"",
       "site.toml:21: channel.meter.level1_password: must have 6 characters, as meters' passwords do"},
      {"  level1_password = \"000000\"", "  level1_password = 0",
       "site.toml:21: channel.meter.level1_password: must be a text in quotes"},
      {"  event_log = 3", "  event_log = 256", "site.toml:25: channel.meter.event_log: must be from 0 to 255, not 256"},
      {"  event_log = 3", "  even_log = 3", "site.toml:25: channel.meter.even_log: unknown key; did you mean \"event_log\"?"},
      {"\"Power P *\", 20210]", "true]", "site.toml:28: channel.meter.tags: must be a name, an id or a wildcard"},
      {"limit_kb = 64", "limit = 64", "site.toml:1: log.limit: unknown key; did you mean \"limit_kb\"?"},
      {"log = { file = \"ostrel.log\", limit_kb = 64 }", "log = \"ostrel.log\"", "site.toml:1: log: must be a table"},
      {"clock_correction_days = 7", "clock_corection_days = 7",
       "site.toml:3: clock_corection_days: unknown key; did you mean \"clock_correction_days\"?"},
  };
  for (const MistakeCase& row : cases) {
    std::string text = kWhole;
    const std::size_t at = text.find(row.line);
    ASSERT_NE(std::string::npos, at) << row.line;
    text.replace(at, std::string(row.line).size(), row.changed);
    try {
      (void)ParseConfig(text, "site.toml");
      ADD_FAILURE() << "accepted: " << row.changed;
    } catch (const Failure& failure) {
      EXPECT_STREQ(row.message, failure.what()) << row.changed;
      EXPECT_EQ(kExitUsage, failure.Code());
    }
  }
}

TEST(Config, TwoMetersOfOneLineNeedTwoAddresses) {
  const std::string text = R"([[channel]]
port = "COM1"
device = "simulated"
[[channel.meter]]
name = "a"
address = 5
type = 1
[[channel.meter]]
name = "b"
address = 5
type = 1
)";
  try {
    (void)ParseConfig(text, "c");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_STREQ("c:10: channel.meter.address: 5 is already the address of \"a\"", failure.what());
  }
}

TEST(Config, WhatIsNoTomlAndWhatIsNotThere) {
  try {
    (void)ParseConfig("clock_correction_days = 7\n[[channel\n", "c");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(0U, std::string(failure.what()).find("c:2: ")) << failure.what();
    EXPECT_EQ(kExitUsage, failure.Code());
  }
  EXPECT_THROW((void)ParseConfig("", "c"), Failure);
  EXPECT_THROW((void)ReadConfig("/nowhere/site.toml"), Failure);
}

}  // namespace
}  // namespace ostrel::host
