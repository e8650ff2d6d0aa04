// The configuration file: channels and their meters. What it says is checked when it is read, except what only the plug-in
// knows (meter types and tag names); those texts keep the line they stand in.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace ostrel::host {

/// Where a value stands, for messages of the form FILE:LINE: KEY: what.
struct Place {
  std::string file;
  std::uint32_t line = 0;
  std::string key;

  /// Two configurations that say the same are equal wherever it stands.
  friend bool operator==(const Place&, const Place&) { return true; }
};

struct PlacedText {
  std::string text;
  Place place;

  friend bool operator==(const PlacedText&, const PlacedText&) = default;
};

struct MeterConfig {
  std::string name;
  std::uint32_t address = 0;
  std::variant<std::uint32_t, std::string> type;  // type id or display name
  Place typePlace;
  std::string level1Password = "000000";  // at most 12 bytes of code page 1251; meters leave the factory with this one
  std::string level2Password;
  std::uint32_t voltageCoefficient = 1;
  std::uint32_t currentCoefficient = 1;
  std::uint8_t eventLog = 0;
  std::uint32_t failHoldSeconds = 60;
  bool exchange = true;
  std::vector<PlacedText> tags;  // names, ids or wildcards; empty: every tag of the type
  bool polled = true;            // false for a command that reads no current data: no tag is in use

  friend bool operator==(const MeterConfig&, const MeterConfig&) = default;
};

struct ChannelConfig {
  std::string port;
  std::string device;
  std::uint32_t baud = 9600;
  std::string parity = "none";
  std::uint16_t retries = 3;
  std::uint32_t pollPeriodSeconds = 5;
  std::uint32_t timeoutMs = 500;
  std::uint32_t preSendPauseMs = 0;
  std::uint32_t lateGuardMs = 100;
  bool echo = false;
  std::vector<MeterConfig> meters;

  friend bool operator==(const ChannelConfig&, const ChannelConfig&) = default;
};

struct Config {
  std::string file;
  std::string logFile;
  std::uint32_t logLimitKb = 1024;
  std::string traceFile;
  std::string traceSettings;
  std::uint32_t clockCorrectionDays = 0;
  std::vector<ChannelConfig> channels;
};

/// Throws Failure with exit code 2 and FILE:LINE: KEY: what.
[[nodiscard]] Config ReadConfig(const std::string& path);
/// The same of a text; `name` stands for the file in messages.
[[nodiscard]] Config ParseConfig(const std::string& text, const std::string& name);

/// A failure at a place of the configuration.
[[noreturn]] void FailAt(const Place& place, const std::string& what);

}  // namespace ostrel::host
