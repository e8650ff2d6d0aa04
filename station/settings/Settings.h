// What the configuration file says of the station, beside channels and meters: the tables [archive], [mqtt] and [web].
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/session/Config.h"

namespace ostrel::station {

struct ArchiveSettings {
  std::string station;                    // the computer's name when left out
  std::string database;                   // path of a file, or postgresql://...
  std::vector<host::PlacedText> history;  // names, ids or wildcards of history tags
  std::uint32_t currentSeconds = 900;     // an unchanged current value is kept so often
  std::uint32_t keepCurrentDays = 400;    // current values, events and link figures
  std::uint32_t keepRecordDays = 0;       // records; 0: for ever
  std::uint32_t limitMb = 0;              // beyond it the oldest current values go; 0: no limit
  std::uint32_t lineShare = 25;           // percent of a line's time that reading archives may take

  friend bool operator==(const ArchiveSettings&, const ArchiveSettings&) = default;
};

struct MqttSettings {
  std::string host;
  std::uint16_t port = 1883;
  std::uint32_t version = 5;  // 5, or 3 for 3.1.1
  std::string prefix = "ostrel";
  std::string user, password;
  std::string caFile, certificateFile, keyFile;  // TLS with a ca_file
  bool homeAssistant = false;
  bool writes = false;

  friend bool operator==(const MqttSettings&, const MqttSettings&) = default;
};

struct WebSettings {
  std::string host = "127.0.0.1";
  std::uint16_t port = 8080;
  std::string certificateFile, keyFile;
  std::string user = "ostrel";
  std::string passwordHash;  // as crypt(5) has it
  std::string tokenHash;     // the SHA-256 of the token in hex
  bool writes = false;

  [[nodiscard]] bool Guarded() const { return !passwordHash.empty() || !tokenHash.empty(); }
  friend bool operator==(const WebSettings&, const WebSettings&) = default;
};

struct StationSettings {
  host::Config lines;
  ArchiveSettings archive;
  std::optional<MqttSettings> mqtt;
  std::optional<WebSettings> web;
};

/// Throws host::Failure (usage) with FILE:LINE: KEY: what.
[[nodiscard]] StationSettings ReadSettings(const std::string& path);
[[nodiscard]] StationSettings ParseSettings(const std::string& text, const std::string& name);

}  // namespace ostrel::station
