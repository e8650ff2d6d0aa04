// ostrel-station: collects what meters hold, keeps it, and passes it on.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>

#include "platform/console.h"
#include "station/program/Commands.h"

namespace ostrel::station {
namespace {

class CommandLine {
 public:
  CommandLine();
  [[nodiscard]] int Run(int count, char** arguments);

 private:
  CLI::App* Add(const char* name, const char* what, CommonOptions& common, std::function<host::ExitCode()> command) {
    CLI::App* const app = app_.add_subcommand(name, what);
    app->add_option("--config", common.config, "the configuration file")->required();
    app->callback([this, command = std::move(command)] { chosen_ = command; });
    return app;
  }
  void AddPeriod(CLI::App* app, PeriodOptions& options) {
    app->add_option("--from", options.from, "first time, as the meters' clocks show it; otherwise a month ago");
    app->add_option("--to", options.to, "the time before which it ends; otherwise now");
    app->add_option("--meter", options.meter, "one meter's name; otherwise all");
    app->add_option("--tag", options.tag, "name, id or wildcard of a history tag; otherwise all");
  }

  CLI::App app_{"Collects what electricity meters hold, keeps it and passes it on.", "ostrel-station"};
  CommonOptions run_;
  PeriodOptions report_, export_, check_;
  BackupOptions backup_;
  std::function<host::ExitCode()> chosen_;
};

CommandLine::CommandLine() {
  app_.require_subcommand(1);
  app_.set_version_flag("--version", "ostrel-station " OSTREL_VERSION);
  app_.footer(host::ExitCodeList());
  Add("run", "polls, keeps and passes on until it is ended", run_, [this] {
    return CommandRun(run_);
  })->add_option("--module", run_.module, "the plug-in; otherwise the registered one, or the one beside the program");
  CLI::App* const report = Add("report", "how complete the archive is, by meter, tag and day", report_.common,
                               [this] { return CommandReport(report_); });
  AddPeriod(report, report_);
  report->add_option("--format", report_.format, "how it is shown")
      ->check(CLI::IsMember({"table", "csv", "json"}))
      ->capture_default_str();
  AddPeriod(Add("export", "records of a period as CSV", export_.common, [this] { return CommandExport(export_); }), export_);
  AddPeriod(Add("check", "compares profile sums with the energies of the same days", check_.common,
                [this] { return CommandCheck(check_); }),
            check_);
  Add("backup", "copies the embedded archive while it is in use", backup_.common, [this] { return CommandBackup(backup_); })
      ->add_option("FILE", backup_.file, "the copy; it must not be there yet")
      ->required();
}

int CommandLine::Run(int count, char** arguments) {
  try {
    app_.parse(count, arguments);
    return chosen_();
  } catch (const CLI::ParseError& error) {
    return app_.exit(error) == 0 ? host::kExitDone : host::kExitUsage;
  } catch (const host::Failure& failure) {
    fmt::print(stderr, "{}\n", failure.what());
    return failure.Code();
  }
}

}  // namespace
}  // namespace ostrel::station

int main(int count, char** arguments) {
  ostrel::platform::PrepareConsole();
  ostrel::station::CommandLine line;
  return line.Run(count, arguments);
}
