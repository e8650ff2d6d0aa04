// The real programs, started as their users start them: ostrel-meter on a pseudo-terminal and ostrel-host on its other end.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace ostrel::test {

/// A program in the background, its standard output and error in files. Ended with its owner.
class Background {
 public:
  Background(const std::string& program, std::vector<std::string> arguments, const std::string& outputFile);
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  /// Waits until the output is as wanted or holds the text; false when the program ends before or nothing comes for long.
  [[nodiscard]] bool WaitUntil(const std::function<bool(const std::string& output)>& wanted);
  [[nodiscard]] bool WaitFor(const std::string& text);
  /// Exit code; -1 when a signal ended it or it does not end within the time.
  [[nodiscard]] int Wait(int seconds);
  void Signal(int signal);
  [[nodiscard]] std::string Output() const { return ReadBytes(output_); }
  [[nodiscard]] std::string Errors() const { return ReadBytes(output_ + ".err"); }

 private:
  [[nodiscard]] bool Ended();

  std::string output_;
  pid_t process_;
  bool ended_ = false;
  int exit_code_ = -1;
};

/// What a tag showed last.
struct Shown {
  nlohmann::json value;
  int quality = -1;
};

struct HostRun {
  int exitCode = -1;
  std::string errors = {};
  std::map<std::pair<std::string, int>, Shown> tags = {};  // by meter and id
  std::vector<std::string> log = {};                       // without time stamps
  std::vector<nlohmann::json> events = {};
};

/// A folder with a line of simulated meters and a configuration for it.
class Bench {
 public:
  /// Meters as ostrel-meter takes them; `faults` is the text of a plan.
  void StartMeters(const std::vector<std::string>& meters, const std::string& faults = {});
  void StopMeters();
  /// A configuration with one channel on that line. `meters` are the [[channel.meter]] tables.
  void Configure(const std::string& channelKeys, const std::string& meters, const std::string& topKeys = {});
  [[nodiscard]] std::unique_ptr<Background> StartHost(std::vector<std::string> arguments);
  [[nodiscard]] HostRun Run(const std::vector<std::string>& arguments, int seconds = 120);
  /// A command that needs no meters and takes no configuration.
  [[nodiscard]] HostRun RunPlain(const std::vector<std::string>& arguments, int seconds = 120);
  [[nodiscard]] std::string File(const std::string& name) const { return folder_.File(name); }
  [[nodiscard]] static HostRun Read(int exitCode, const std::string& output, const std::string& errors);

 private:
  TemporaryFolder folder_;
  std::unique_ptr<Background> meters_;
};

inline constexpr std::uint32_t kMeterTypes[] = {0, 1, 2, 3, 6, 7, 8, 11, 12};

/// A [[channel.meter]] table; `more` are further lines of it.
[[nodiscard]] std::string MeterTable(const std::string& name, std::uint32_t address, std::uint32_t type,
                                     const std::string& more = {});
/// A meter as ostrel-meter takes it, behind transformers where its type has their coefficients.
[[nodiscard]] std::string MeterText(std::uint32_t address, std::uint32_t type, const std::string& settings);

[[nodiscard]] inline std::string FileText(const std::string& path) { return ReadBytes(path); }

}  // namespace ostrel::test
