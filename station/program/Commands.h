// The commands of ostrel-station. Results go to standard output, messages to standard error; the exit codes are those of
// ostrel-host.
#pragma once

#include <string>

#include "host/session/Failure.h"
#include "station/settings/Settings.h"

namespace ostrel::station {

struct CommonOptions {
  std::string config;
  std::string module;
};

struct PeriodOptions {
  CommonOptions common;
  std::string from;   // as the meters' clocks show it; empty: a month ago
  std::string to;     // empty: now
  std::string meter;  // empty: all
  std::string tag;    // name, id or wildcard; empty: all
  std::string format = "table";
};

struct BackupOptions {
  CommonOptions common;
  std::string file;
};

[[nodiscard]] host::ExitCode CommandRun(const CommonOptions& options);
[[nodiscard]] host::ExitCode CommandReport(const PeriodOptions& options);
[[nodiscard]] host::ExitCode CommandExport(const PeriodOptions& options);
[[nodiscard]] host::ExitCode CommandCheck(const PeriodOptions& options);
[[nodiscard]] host::ExitCode CommandBackup(const BackupOptions& options);

}  // namespace ostrel::station
