#include "host/session/Config.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>

#include "Protocol/link/PortSettings.h"
#include "host/server/HostServices.h"
#include "host/session/Failure.h"
#include "host/session/TableReader.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kPasswordBytes = 12;
constexpr std::array<std::uint32_t, 10> kBaudRates = {300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};
constexpr std::array<const char*, 5> kParityWords = {"none", "even", "odd", "mark", "space"};
constexpr Range kAnyWord = {0, std::numeric_limits<std::uint16_t>::max()};
constexpr Range kCoefficients = {0, std::numeric_limits<std::uint32_t>::max()};
constexpr Range kMilliseconds = {0, 600000};
/// The plug-in counts its period in ms of 32 bits.
constexpr Range kSeconds = {0, std::numeric_limits<std::uint32_t>::max() / 1000};
constexpr Range kKilobytes = {0, std::numeric_limits<std::int32_t>::max()};
constexpr Range kByte = {0, 255};
/// What a station reads of the same file by itself.
constexpr std::array<const char*, 3> kStationTables = {"archive", "mqtt", "web"};

std::uint32_t Unsigned(std::int64_t value) { return static_cast<std::uint32_t>(value); }

std::string Password(TableReader& reader, const char* key) {
  std::string password = reader.Text(key, "");
  if (platform::Utf8ToCp1251(password).size() > kPasswordBytes)
    reader.Fail(key, fmt::format("is longer than {} characters", kPasswordBytes));
  return password;
}

void ReadType(TableReader& reader, MeterConfig& meter) {
  const toml::node* const node = reader.Node("type");
  meter.typePlace = reader.PlaceOf("type");
  if (node == nullptr) reader.Fail("type", "is missing");
  if (node->is_integer()) {
    meter.type = Unsigned(reader.Integer("type", 0, kByte));
  } else if (node->is_string()) {
    meter.type = node->as_string()->get();
  } else {
    reader.Fail("type", "must be a type id or a display name in quotes");
  }
}

void ReadTags(TableReader& reader, MeterConfig& meter) {
  const toml::node* const node = reader.Node("tags");
  if (node == nullptr) return;
  if (!node->is_array()) reader.Fail("tags", "must be a list of names, ids or wildcards");
  if (node->as_array()->empty()) reader.Fail("tags", "must not be empty; leave it out for every tag");
  for (const toml::node& element : *node->as_array()) {
    const Place place = reader.PlaceOf("tags", element);
    if (element.is_string()) {
      meter.tags.push_back({element.as_string()->get(), place});
    } else if (element.is_integer()) {
      meter.tags.push_back({std::to_string(element.as_integer()->get()), place});
    } else {
      FailAt(place, "must be a name, an id or a wildcard");
    }
  }
}

MeterConfig ReadMeter(TableReader reader) {
  MeterConfig meter;
  meter.name = reader.RequiredText("name");
  meter.address = Unsigned(reader.RequiredInteger("address", kByte));
  ReadType(reader, meter);
  if (reader.Node("level1_password") != nullptr) meter.level1Password = Password(reader, "level1_password");
  meter.level2Password = Password(reader, "level2_password");
  meter.voltageCoefficient = Unsigned(reader.Integer("voltage_coefficient", 1, kCoefficients));
  meter.currentCoefficient = Unsigned(reader.Integer("current_coefficient", 1, kCoefficients));
  meter.eventLog = static_cast<std::uint8_t>(reader.Integer("event_log", 0, kByte));
  meter.failHoldSeconds = Unsigned(reader.Integer("fail_hold_s", 60, kSeconds));
  meter.exchange = reader.Boolean("exchange", true);
  ReadTags(reader, meter);
  reader.RejectOthers();
  return meter;
}

void ReadLine(TableReader& reader, ChannelConfig& channel) {
  channel.baud = Unsigned(reader.Integer("baud", 9600, kCoefficients));
  if (std::find(kBaudRates.begin(), kBaudRates.end(), channel.baud) == kBaudRates.end()) {
    reader.Fail("baud", fmt::format("must be one of {}, not {}", fmt::join(kBaudRates, ", "), channel.baud));
  }
  channel.parity = reader.Text("parity", "none");
  if (std::find(kParityWords.begin(), kParityWords.end(), channel.parity) == kParityWords.end()) {
    reader.Fail("parity", fmt::format("must be one of {}, not \"{}\"", fmt::join(kParityWords, ", "), channel.parity));
  }
  channel.retries = static_cast<std::uint16_t>(reader.Integer("retries", 3, kAnyWord));
  channel.pollPeriodSeconds = Unsigned(reader.Integer("poll_period_s", 5, kSeconds));
  channel.timeoutMs = Unsigned(reader.Integer("timeout_ms", 500, kMilliseconds));
  channel.preSendPauseMs = Unsigned(reader.Integer("pre_send_pause_ms", 0, kMilliseconds));
  channel.lateGuardMs = Unsigned(reader.Integer("late_guard_ms", 100, kMilliseconds));
  channel.echo = reader.Boolean("echo", false);
}

void ReadDevice(TableReader& reader, ChannelConfig& channel) {
  channel.device = reader.Text("device", DefaultDevice(channel.port));
  if (channel.device.empty()) reader.Fail("device", "is missing");
  const std::string problem = DeviceTextProblem(channel.device);
  if (!problem.empty()) reader.Fail("device", problem);
}

ChannelConfig ReadChannel(TableReader reader, const std::string& file) {
  ChannelConfig channel;
  channel.port = reader.RequiredText("port");
  if (platform::Utf8ToCp1251(channel.port).size() > kPortNameKept) {
    reader.Fail("port", fmt::format("is longer than {} characters", kPortNameKept));
  }
  ReadDevice(reader, channel);
  ReadLine(reader, channel);
  for (const toml::table* const table : reader.Tables("meter")) {
    channel.meters.push_back(ReadMeter({*table, file, "channel.meter."}));
    const MeterConfig& meter = channel.meters.back();
    for (const MeterConfig& other : channel.meters) {
      if (&other == &meter || other.address != meter.address) continue;
      TableReader(*table, file, "channel.meter.")
          .Fail("address", fmt::format("{} is already the address of \"{}\"", meter.address, other.name));
    }
  }
  reader.RejectOthers();
  return channel;
}

// Meters are named on the command line, ports in messages: each name stands once in the whole file.
void RejectTwins(const toml::table& root, const std::string& file) {
  std::map<std::string, bool> ports;
  std::map<std::string, bool> meters;
  TableReader reader(root, file, "");
  for (const toml::table* const channelTable : reader.Tables("channel")) {
    TableReader channel(*channelTable, file, "channel.");
    const std::string port = channel.Text("port", "");
    if (!ports.emplace(port, true).second) channel.Fail("port", "\"" + port + "\" is already the name of another channel");
    for (const toml::table* const meterTable : channel.Tables("meter")) {
      TableReader meter(*meterTable, file, "channel.meter.");
      const std::string name = meter.Text("name", "");
      if (!meters.emplace(name, true).second) meter.Fail("name", "\"" + name + "\" is already the name of another meter");
    }
  }
}

void ReadDiagnostics(TableReader& root, Config& config) {
  if (const toml::table* const table = root.Table("log")) {
    TableReader log(*table, config.file, "log.");
    config.logFile = log.RequiredText("file");
    if (!platform::Utf8ToSystemPath(config.logFile)) log.Fail("file", "has a character that this system's code page lacks");
    config.logLimitKb = Unsigned(log.Integer("limit_kb", 1024, kKilobytes));
    log.RejectOthers();
  }
  if (const toml::table* const table = root.Table("trace")) {
    TableReader trace(*table, config.file, "trace.");
    config.traceFile = trace.RequiredText("file");
    config.traceSettings = trace.Text("settings", "DBG_COMMON=1");
    trace.RejectOthers();
  }
}

}  // namespace

void FailAt(const Place& place, const std::string& what) {
  throw Failure(kExitUsage, fmt::format("{}:{}: {}: {}", place.file, place.line, place.key, what));
}

Config ParseConfig(const std::string& text, const std::string& name) {
  const toml::parse_result parsed = toml::parse(text, name);
  if (!parsed) {
    const toml::parse_error& error = parsed.error();
    throw Failure(kExitUsage, fmt::format("{}:{}: {}", name, error.source().begin.line, error.description()));
  }
  Config config;
  config.file = name;
  TableReader root(parsed.table(), name, "");
  ReadDiagnostics(root, config);
  config.clockCorrectionDays = Unsigned(root.Integer("clock_correction_days", 0, {0, 3650}));
  for (const toml::table* const table : root.Tables("channel"))
    config.channels.push_back(ReadChannel({*table, name, "channel."}, name));
  for (const char* const table : kStationTables) (void)root.Node(table);
  root.RejectOthers();
  if (config.channels.empty()) throw Failure(kExitUsage, name + ":1: channel: is missing");
  RejectTwins(parsed.table(), name);
  return config;
}

Config ReadConfig(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Failure(kExitUsage, path + ": cannot be read");
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return ParseConfig(text, path);
}

}  // namespace ostrel::host
