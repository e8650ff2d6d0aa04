// ostrel-host: loads the plug-in and drives it from the command line.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>

#include "host/program/Commands.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

using Command = std::function<ExitCode()>;

// Time is counted in ms of 32 bits.
const CLI::Range kSeconds(0, 4'000'000);

class CommandLine {
 public:
  CommandLine();
  [[nodiscard]] int Run(int count, char** arguments);

 private:
  CLI::App* Add(const std::string& name, const std::string& what, CommonOptions& common, Command command);
  void AddConfig(CLI::App* app, CommonOptions& common);
  void AddPolling();
  void AddQuestions();
  void AddHistory();
  void AddBrowsing();

  CLI::App app_{"Polls electricity meters through the protocol plug-in."};
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
  DemoOptions demo_;
};

CommandLine::CommandLine() {
  app_.require_subcommand(1);
  AddPolling();
  AddQuestions();
  AddHistory();
  AddBrowsing();
}

CLI::App* CommandLine::Add(const std::string& name, const std::string& what, CommonOptions& common, Command command) {
  CLI::App* const app = app_.add_subcommand(name, what);
  app->add_option("--module", common.module,
                  "the plug-in's module; otherwise the registered one, or the one beside this program");
  app->add_flag("--json", common.json, "one JSON object a line");
  app->final_callback([this, command = std::move(command)] { chosen_ = command; });
  return app;
}

void CommandLine::AddConfig(CLI::App* app, CommonOptions& common) {
  app->add_option("--config", common.config, "channels and meters, a TOML file")->required();
}

void CommandLine::AddPolling() {
  CLI::App* const run =
      Add("run", "poll until stopped; takes lines 'write METER TAG VALUE'", run_.common, [this] { return CommandRun(run_); });
  AddConfig(run, run_.common);
  run->add_option("--passes", run_.passes, "end after so many passes of each channel");
  run->add_option("--seconds", run_.seconds, "end after so long")->check(kSeconds);
  run->add_flag("--every-pass", run_.everyPass, "print every tag after every pass, not only what changed");

  CLI::App* const demo = Add("demo", "simulated meters, polled and shown", demo_.common, [this] { return CommandDemo(demo_); });
  demo->add_option("--seconds", demo_.seconds, "how long")->check(kSeconds)->capture_default_str();
}

void CommandLine::AddQuestions() {
  CLI::App* const read = Add("read", "read tags of a meter once", read_.common, [this] { return CommandRead(read_); });
  AddConfig(read, read_.common);
  read->add_option("--meter", read_.meter, "the meter's name")->required();
  read->add_option("TAG", read_.tags, "names, ids or wildcards")->required();

  CLI::App* const write = Add("write", "write a tag and read it back", write_.common, [this] { return CommandWrite(write_); });
  AddConfig(write, write_.common);
  write->add_option("--meter", write_.meter, "the meter's name")->required();
  write->add_option("TAG", write_.tag, "name or id")->required();
  write->add_option("VALUE", write_.value, "number, true or false")->required();

  CLI::App* const exchange =
      Add("exchange", "send one raw frame", exchange_.common, [this] { return CommandExchange(exchange_); });
  AddConfig(exchange, exchange_.common);
  exchange->add_option("--channel", exchange_.channel, "port name, when there are several");
  exchange->add_option("HEX", exchange_.hex, "bytes from the address on, without the check")->required();

  AddConfig(Add("check", "open the ports and ask each meter", check_, [this] { return CommandCheck(check_); }), check_);
}

void CommandLine::AddHistory() {
  CLI::App* const history =
      Add("history", "archives and load profiles of a meter", history_.common, [this] { return CommandHistory(history_); });
  AddConfig(history, history_.common);
  history->add_option("--meter", history_.meter, "the meter's name")->required();
  history->add_option("TAG", history_.tags, "names, ids or wildcards of history tags");
  history->add_option("--tariff", history_.tariff, "energies of this tariff, 0 for the sum; otherwise the one in the tag's name")
      ->check(CLI::Range(0, 8));
  history->add_option("--from", history_.from,
                      "first time, as the meter's clock shows it; otherwise a profile's last day, or an archive's whole depth");
  history->add_option("--to", history_.to, "the time before which it ends");
  history->add_option("--format", history_.format, "how it is shown")
      ->check(CLI::IsMember({"table", "csv", "json", "chart"}))
      ->capture_default_str();
  CLI::Option* const all = history->add_flag("--all-tags", history_.allTags, "every history tag that the meter's type has");
  history->add_option("--csv", history_.csvFolder, "folder for a file of each tag")->needs(all);
}

void CommandLine::AddBrowsing() {
  Add("types", "meter types that the plug-in serves", types_, [this] { return CommandTypes(types_); });
  CLI::App* const tags = Add("tags", "tags of a meter type", tags_.common, [this] { return CommandTags(tags_); });
  tags->add_option("--type", tags_.type, "type id or display name")->required();
  tags->add_option("--branch", tags_.branch, "current data or history")
      ->check(CLI::IsMember({"da", "hda"}))
      ->capture_default_str();
  Add("register", "enter the plug-in in the host's list", register_, [this] { return CommandRegister(register_, true); });
  Add("unregister", "take it out of the list", register_, [this] { return CommandRegister(register_, false); });
}

int CommandLine::Run(int count, char** arguments) {
  try {
    app_.parse(count, arguments);
    return chosen_();
  } catch (const CLI::ParseError& error) {
    return app_.exit(error) == 0 ? kExitDone : kExitUsage;
  } catch (const Failure& failure) {
    fmt::print(stderr, "{}\n", failure.what());
    return failure.Code();
  }
}

}  // namespace
}  // namespace ostrel::host

int main(int count, char** arguments) {
  ostrel::platform::PrepareConsole();
  ostrel::platform::CatchInterrupt();
  ostrel::host::CommandLine line;
  return line.Run(count, arguments);
}
