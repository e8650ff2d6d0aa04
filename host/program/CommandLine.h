// What can be said to ostrel-host, and which command it chooses.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "host/program/Commands.h"

namespace ostrel::host {

using Command = std::function<ExitCode()>;

inline constexpr const char* kInternalError = "an error of the program itself, please report it: ";

class CommandLine {
 public:
  CommandLine();
  /// Arguments in UTF-8.
  [[nodiscard]] int Run(std::vector<std::string> arguments);

 private:
  void CheckCommand(const std::vector<std::string>& arguments) const;
  CLI::App* Add(const std::string& name, const std::string& what, CommonOptions& common, Command command);
  void AddConfig(CLI::App* app, CommonOptions& common);
  void AddPolling();
  void AddQuestions();
  void AddDoctor();
  void AddPlan();
  void AddTrace();
  void AddHistory();
  void AddBrowsing();

  CLI::App app_{"Polls electricity meters through the protocol plug-in.", "ostrel-host"};
  Command chosen_;
  RunOptions run_;
  ReadOptions read_;
  WriteOptions write_;
  CommonOptions types_;
  HistoryOptions history_;
  TagsOptions tags_;
  CommonOptions register_;
  ExchangeOptions exchange_;
  CommonOptions check_;
  DoctorOptions doctor_;
  PlanOptions plan_;
  TraceOptions trace_;
  DemoOptions demo_;
};

}  // namespace ostrel::host
