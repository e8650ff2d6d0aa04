#include "station/settings/Settings.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <iterator>

#include "host/session/Failure.h"
#include "host/session/TableReader.h"

namespace ostrel::station {
namespace {

using host::TableReader;

constexpr host::Range kDays = {0, 36500};
constexpr host::Range kPercent = {1, 90};
constexpr host::Range kMegabytes = {0, 100'000'000};
constexpr const char* kDefaultDatabase = "/var/lib/ostrel/archive.db";
/// Load profiles, and of the energies the sums of all tariffs.
constexpr std::array<const char*, 2> kDefaultHistory = {"* Profile Power", "* Tariff Sum"};

std::uint32_t Number(TableReader& reader, const char* key, std::uint32_t otherwise, host::Range range) {
  return static_cast<std::uint32_t>(reader.Integer(key, otherwise, range));
}

std::string ComputersName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return "station";
  return name.data();
}

// It becomes a level of topics.
void CheckLevel(TableReader& reader, const char* key, const std::string& text) {
  if (text.empty() || text.find_first_of("/+# \t") != std::string::npos)
    reader.Fail(key, "must be a word without / + # or blanks");
}

void SplitAddress(TableReader& reader, const char* key, std::string& host, std::uint16_t& port) {
  const std::string text = reader.RequiredText(key);
  const std::size_t colon = text.rfind(':');
  host = text.substr(0, colon);
  const std::string digits = colon == std::string::npos ? "" : text.substr(colon + 1);
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  if (host.empty() || read.ec != std::errc() || read.ptr != digits.data() + digits.size()) reader.Fail(key, "must be HOST:PORT");
  if (host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
}

void ReadHistory(TableReader& reader, ArchiveSettings& archive) {
  const toml::node* const node = reader.Node("history");
  if (node == nullptr) {
    for (const char* const tags : kDefaultHistory) archive.history.push_back({.text = tags, .place = {}});
    return;
  }
  if (!node->is_array()) reader.Fail("history", "must be a list of names, ids or wildcards");
  for (const toml::node& element : *node->as_array()) {
    if (!element.is_string()) host::FailAt(reader.PlaceOf("history", element), "must be a name, an id or a wildcard in quotes");
    archive.history.push_back({.text = element.as_string()->get(), .place = reader.PlaceOf("history", element)});
  }
}

void ReadArchive(const toml::table& table, const std::string& file, ArchiveSettings& archive) {
  TableReader reader(table, file, "archive.");
  archive.station = reader.Text("station", ComputersName());
  CheckLevel(reader, "station", archive.station);
  archive.database = reader.Text("database", kDefaultDatabase);
  ReadHistory(reader, archive);
  archive.currentSeconds = Number(reader, "current_s", 900, {1, 86400});
  archive.keepCurrentDays = Number(reader, "keep_current_days", 400, kDays);
  archive.keepRecordDays = Number(reader, "keep_record_days", 0, kDays);
  archive.limitMb = Number(reader, "limit_mb", 0, kMegabytes);
  archive.lineShare = Number(reader, "line_share", 25, kPercent);
  reader.RejectOthers();
}

MqttSettings ReadMqtt(const toml::table& table, const std::string& file) {
  TableReader reader(table, file, "mqtt.");
  MqttSettings mqtt;
  SplitAddress(reader, "broker", mqtt.host, mqtt.port);
  mqtt.version = Number(reader, "version", 5, {3, 5});
  if (mqtt.version == 4) reader.Fail("version", "must be 5, or 3 for 3.1.1");
  mqtt.prefix = reader.Text("prefix", "ostrel");
  CheckLevel(reader, "prefix", mqtt.prefix);
  mqtt.user = reader.Text("user", "");
  mqtt.password = reader.Text("password", "");
  mqtt.caFile = reader.Text("ca_file", "");
  mqtt.certificateFile = reader.Text("certificate_file", "");
  mqtt.keyFile = reader.Text("key_file", "");
  if (mqtt.certificateFile.empty() != mqtt.keyFile.empty()) reader.Fail("certificate_file", "and key_file go together");
  if (!mqtt.certificateFile.empty() && mqtt.caFile.empty()) reader.Fail("ca_file", "is missing");
  mqtt.homeAssistant = reader.Boolean("home_assistant", false);
  mqtt.writes = reader.Boolean("writes", false);
  reader.RejectOthers();
  return mqtt;
}

bool IsLocal(const std::string& host) { return host == "127.0.0.1" || host == "::1" || host == "localhost"; }

WebSettings ReadWeb(const toml::table& table, const std::string& file) {
  TableReader reader(table, file, "web.");
  WebSettings web;
  if (table.contains("address")) SplitAddress(reader, "address", web.host, web.port);
  web.certificateFile = reader.Text("certificate_file", "");
  web.keyFile = reader.Text("key_file", "");
  if (web.certificateFile.empty() != web.keyFile.empty()) reader.Fail("certificate_file", "and key_file go together");
  web.user = reader.Text("user", "ostrel");
  web.passwordHash = reader.Text("password_hash", "");
  if (!web.passwordHash.empty() && web.passwordHash.front() != '$')
    reader.Fail("password_hash", "must be a hash as mkpasswd makes it");
  web.tokenHash = reader.Text("token_sha256", "");
  if (!web.tokenHash.empty() && web.tokenHash.size() != 64) reader.Fail("token_sha256", "must be 64 hex digits");
  web.writes = reader.Boolean("writes", false);
  if (!IsLocal(web.host) && (web.certificateFile.empty() || !web.Guarded())) {
    reader.Fail("address", "beyond this computer only with certificate_file and with password_hash or token_sha256");
  }
  if (web.writes && !web.Guarded()) reader.Fail("writes", "only with password_hash or token_sha256");
  reader.RejectOthers();
  return web;
}

}  // namespace

StationSettings ParseSettings(const std::string& text, const std::string& name) {
  StationSettings settings;
  settings.lines = host::ParseConfig(text, name);
  const toml::parse_result parsed = toml::parse(text, name);
  TableReader root(parsed.table(), name, "");
  const toml::table empty;
  const toml::table* const archive = root.Table("archive");
  ReadArchive(archive == nullptr ? empty : *archive, name, settings.archive);
  if (const toml::table* const mqtt = root.Table("mqtt")) settings.mqtt = ReadMqtt(*mqtt, name);
  if (const toml::table* const web = root.Table("web")) settings.web = ReadWeb(*web, name);
  return settings;
}

StationSettings ReadSettings(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw host::Failure(host::kExitUsage, path + ": cannot be read");
  return ParseSettings(std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>()), path);
}

}  // namespace ostrel::station
