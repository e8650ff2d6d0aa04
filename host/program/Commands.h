// The commands of ostrel-host, a file each. They print results to standard output, give their exit code, and throw Failure for
// what keeps them from beginning.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/session/Failure.h"

namespace ostrel::host {

class Session;

/// What every command that talks to meters takes.
struct CommonOptions {
  std::string config;
  std::string module;  // empty: beside the program
  bool json = false;
};

struct RunOptions {
  CommonOptions common;
  std::uint32_t passes = 0;   // 0: no limit
  std::uint32_t seconds = 0;  // 0: no limit
  bool everyPass = false;
  bool allowWrites = false;
};

struct ReadOptions {
  CommonOptions common;
  bool why = false;
  std::string meter;
  std::vector<std::string> tags;
};

struct WriteOptions {
  CommonOptions common;
  std::string meter;
  std::string tag;
  std::string value;
};

struct HistoryOptions {
  CommonOptions common;
  std::string meter;
  std::vector<std::string> tags;
  std::optional<std::uint32_t> tariff;  // in place of the one that the tag's name tells
  std::string from;                     // of the meter's wall clock; empty: the default of the tag's kind
  std::string to;
  std::string format = "table";
  bool allTags = false;
  std::string csvFolder;
  bool excel = false;
};

struct TagsOptions {
  CommonOptions common;
  std::string type;  // id or display name
  std::string branch = "da";
};

struct ExchangeOptions {
  CommonOptions common;
  std::string channel;  // port name; may be empty when there is only one
  std::vector<std::string> hex;
  bool allowWrites = false;
};

struct DoctorOptions {
  CommonOptions common;
  std::string device;   // in place of a configuration
  std::string channel;  // port name; empty for all
  std::string scanAddresses;
  bool scanSpeeds = false;
  std::string writeConfig;        // file for what a search found
  std::uint32_t timeoutMs = 200;  // for the answer of a device that has no configuration
};

struct PlanOptions {
  CommonOptions common;
  std::uint32_t turnaroundMs = 20;
  bool measure = false;
};

struct TraceOptions {
  CommonOptions common;
  std::string file;
  std::string output;  // empty: standard output
};

struct DemoOptions {
  CommonOptions common;
  std::uint32_t seconds = 6;
};

/// False when a port could not be opened; says which, and why.
[[nodiscard]] bool AllOpened(Session& session);

[[nodiscard]] ExitCode CommandRun(const RunOptions& options);
[[nodiscard]] ExitCode CommandRead(const ReadOptions& options);
[[nodiscard]] ExitCode CommandWrite(const WriteOptions& options);
[[nodiscard]] ExitCode CommandHistory(const HistoryOptions& options);
[[nodiscard]] ExitCode CommandTypes(const CommonOptions& options);
[[nodiscard]] ExitCode CommandTags(const TagsOptions& options);
[[nodiscard]] ExitCode CommandExchange(const ExchangeOptions& options);
[[nodiscard]] ExitCode CommandRegister(const CommonOptions& options, bool enter);
[[nodiscard]] ExitCode CommandCheck(const CommonOptions& options);
[[nodiscard]] ExitCode CommandDoctor(const DoctorOptions& options);
[[nodiscard]] ExitCode CommandPlan(const PlanOptions& options);
[[nodiscard]] ExitCode CommandTrace(const TraceOptions& options);
[[nodiscard]] ExitCode CommandDemo(const DemoOptions& options);

}  // namespace ostrel::host
