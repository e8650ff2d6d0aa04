#include "host/session/Config.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>

#include "Protocol/link/PortSettings.h"
#include "host/server/HostServices.h"
#include "host/session/Failure.h"
#include "host/session/MeterFrames.h"
#include "host/session/TableReader.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

/// The longest path that the event log keeps.
constexpr std::size_t kLogPathBytes = 259;
constexpr std::array<std::uint32_t, 10> kBaudRates = {300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};
constexpr std::array<const char*, 5> kParityWords = {"none", "even", "odd", "mark", "space"};
constexpr Range kTries = {1, std::numeric_limits<std::uint16_t>::max()};
constexpr Range kCoefficients = {0, std::numeric_limits<std::uint32_t>::max()};
constexpr Range kMilliseconds = {0, 600000};
constexpr Range kTimeout = {1, 600000};
/// The plug-in counts its period in ms of 32 bits.
constexpr Range kSeconds = {0, std::numeric_limits<std::uint32_t>::max() / 1000};
constexpr Range kKilobytes = {0, std::numeric_limits<std::int32_t>::max()};
constexpr Range kByte = {0, 255};
/// What a station reads of the same file by itself.
constexpr std::array<const char*, 3> kStationTables = {"archive", "mqtt", "web"};

std::uint32_t Unsigned(std::int64_t value) { return static_cast<std::uint32_t>(value); }

std::string Password(TableReader& reader, const char* key) {
  std::string password = reader.Text(key, "");
  if (!password.empty() && platform::Utf8ToCp1251(password).size() != kPasswordBytes)
    reader.Fail(key, fmt::format("must have {} characters, as meters' passwords do", kPasswordBytes));
  return password;
}

// Names stand in messages, tables and files, a line each.
std::string Name(TableReader& reader, const char* key) {
  std::string name = reader.RequiredText(key);
  const bool control = std::any_of(name.begin(), name.end(),
                                   [](char letter) { return static_cast<unsigned char>(letter) < ' ' || letter == '\x7F'; });
  if (control) reader.Fail(key, "must not hold control characters");
  return name;
}

// Whether lines can be appended; what was not there before is not there afterwards.
bool IsWritable(const std::string& file) {
  const std::filesystem::path path = platform::PathOf(file);
  std::error_code failed;
  const bool there = std::filesystem::exists(path, failed);
  const bool opens = std::ofstream(path, std::ios::app).is_open();
  if (!there && opens) std::filesystem::remove(path, failed);
  return opens;
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

std::vector<PlacedText> ReadTags(TableReader& reader, const char* key) {
  std::vector<PlacedText> tags;
  const toml::node* const node = reader.Node(key);
  if (node == nullptr) return tags;
  if (!node->is_array()) reader.Fail(key, "must be a list of names, ids or wildcards");
  if (node->as_array()->empty()) reader.Fail(key, "must not be empty; leave it out for every tag");
  for (const toml::node& element : *node->as_array()) {
    const Place place = reader.PlaceOf(key, element);
    if (element.is_string()) {
      tags.push_back({element.as_string()->get(), place});
    } else if (element.is_integer()) {
      tags.push_back({std::to_string(element.as_integer()->get()), place});
    } else {
      FailAt(place, "must be a name, an id or a wildcard");
    }
  }
  return tags;
}

MeterConfig ReadMeter(TableReader reader) {
  MeterConfig meter;
  meter.name = Name(reader, "name");
  meter.address = Unsigned(reader.RequiredInteger("address", kByte));
  ReadType(reader, meter);
  if (reader.Node("level1_password") != nullptr) meter.level1Password = Password(reader, "level1_password");
  meter.level2Password = Password(reader, "level2_password");
  meter.voltageCoefficient = Unsigned(reader.Integer("voltage_coefficient", 1, kCoefficients));
  meter.currentCoefficient = Unsigned(reader.Integer("current_coefficient", 1, kCoefficients));
  meter.eventLog = static_cast<std::uint8_t>(reader.Integer("event_log", 0, kByte));
  meter.failHoldSeconds = Unsigned(reader.Integer("fail_hold_s", 60, kSeconds));
  meter.exchange = reader.Boolean("exchange", true);
  meter.tags = ReadTags(reader, "tags");
  meter.readOnly = ReadTags(reader, "read_only");
  meter.writable = ReadTags(reader, "writable");
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
  channel.retries = static_cast<std::uint16_t>(reader.Integer("retries", 3, kTries));
  channel.pollPeriodSeconds = Unsigned(reader.Integer("poll_period_s", 5, kSeconds));
  channel.timeoutMs = Unsigned(reader.Integer("timeout_ms", 500, kTimeout));
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
  channel.port = Name(reader, "port");
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
  std::map<std::string, std::string> devices;  // and the port that has each
  TableReader reader(root, file, "");
  for (const toml::table* const channelTable : reader.Tables("channel")) {
    TableReader channel(*channelTable, file, "channel.");
    const std::string port = channel.Text("port", "");
    if (!ports.emplace(port, true).second) channel.Fail("port", "\"" + port + "\" is already the name of another channel");
    const std::string device = channel.Text("device", "");
    const auto [taken, isNew] = devices.emplace(device, port);
    if (!isNew && !device.empty() && device != "simulated") channel.Fail("device", "is already the device of " + taken->second);
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
    if (platform::Utf8ToSystemPath(config.logFile)->size() > kLogPathBytes)
      log.Fail("file", fmt::format("is longer than {} bytes", kLogPathBytes));
    if (!IsWritable(config.logFile)) log.Fail("file", "cannot be written");
    config.logLimitKb = Unsigned(log.Integer("limit_kb", 1024, kKilobytes));
    log.RejectOthers();
  }
  if (const toml::table* const table = root.Table("trace")) {
    TableReader trace(*table, config.file, "trace.");
    config.traceFile = trace.RequiredText("file");
    if (!IsWritable(config.traceFile)) trace.Fail("file", "cannot be written");
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
  config.writeLog = root.Text("write_log", name + ".writes.log");
  if (config.writeLog.empty()) root.Fail("write_log", "must not be empty");
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
  const std::filesystem::path place = platform::PathOf(path);
  std::error_code failed;
  if (std::filesystem::is_directory(place, failed)) throw Failure(kExitUsage, path + ": is a folder");
  std::ifstream file(place, std::ios::binary);
  if (!file) throw Failure(kExitUsage, path + ": cannot be read");
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return ParseConfig(text, path);
}

}  // namespace ostrel::host
