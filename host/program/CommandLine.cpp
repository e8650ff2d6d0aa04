#include "host/program/CommandLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <sstream>

#include "host/session/NearNames.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

// Time is counted in ms of 32 bits.
const CLI::Range kSeconds(0, 4'000'000);

// Programs find the reason in the last line of the output.
int End(ExitCode code, bool json) {
  if (json && code != kExitDone) Print(ErrorJson(code, Complaints().empty() ? ExitCodeText(code) : Complaints()) + '\n');
  return code;
}

}  // namespace

CommandLine::CommandLine() {
  app_.require_subcommand(1);
  app_.set_version_flag("--version", "ostrel-host " OSTREL_VERSION);
  app_.footer(ExitCodeList());
  AddPolling();
  AddQuestions();
  AddDoctor();
  AddPlan();
  AddTrace();
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
  CLI::App* const run = Add("run", "poll until stopped; with --allow-writes takes lines 'write METER TAG VALUE'", run_.common,
                            [this] { return CommandRun(run_); });
  AddConfig(run, run_.common);
  run->add_option("--passes", run_.passes, "end after so many passes of each channel; 0: no limit");
  run->add_option("--seconds", run_.seconds, "end after so long; 0: no limit")->check(kSeconds);
  run->add_flag("--every-pass", run_.everyPass, "print every tag after every pass, not only what changed");

  run->add_flag("--allow-writes", run_.allowWrites, "take 'write' lines; without it meters are only read");

  CLI::App* const demo = Add("demo", "simulated meters, polled and shown", demo_.common, [this] { return CommandDemo(demo_); });
  demo->add_option("--seconds", demo_.seconds, "how long")->check(kSeconds)->capture_default_str();
}

void CommandLine::AddQuestions() {
  CLI::App* const read = Add("read", "read tags of a meter once", read_.common, [this] { return CommandRead(read_); });
  AddConfig(read, read_.common);
  read->add_option("--meter", read_.meter, "the meter's name")->required();
  read->add_flag("--why", read_.why, "from the bytes sent and received to the value");
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
  exchange->add_flag("--allow-writes", exchange_.allowWrites, "send also what changes the meter (request code 03)");
  exchange->add_option("HEX", exchange_.hex, "bytes from the address on, without the check")->required();

  AddConfig(Add("check", "open the ports and ask each meter", check_, [this] { return CommandCheck(check_); }), check_);
}

void CommandLine::AddDoctor() {
  CLI::App* const doctor = Add("doctor", "what is wrong with a line or a meter, and what to do about it", doctor_.common,
                               [this] { return CommandDoctor(doctor_); });
  doctor->add_option("--config", doctor_.common.config, "channels and meters, a TOML file");
  doctor->add_option("--device", doctor_.device, "a device without a configuration, for a search");
  doctor->add_option("--timeout-ms", doctor_.timeoutMs, "how long its meters may take to answer")
      ->check(CLI::Range(1, 60000))
      ->capture_default_str();
  doctor->add_option("--channel", doctor_.channel, "port name, for one of several");
  doctor->add_option("--scan-addresses", doctor_.scanAddresses, "search meters, such as 1-254 or 1,5,10-20");
  doctor->add_flag("--scan-speeds", doctor_.scanSpeeds, "search at every speed and parity until a meter answers");
  doctor->add_option("--write-config", doctor_.writeConfig, "new file for the channel that a search found");
}

void CommandLine::AddPlan() {
  CLI::App* const plan =
      Add("plan", "requests, bytes and time of a pass against the period", plan_.common, [this] { return CommandPlan(plan_); });
  AddConfig(plan, plan_.common);
  plan->add_option("--turnaround-ms", plan_.turnaroundMs, "what the meters take to begin an answer")->capture_default_str();
  plan->add_flag("--measure", plan_.measure, "make two passes, and set what was measured beside the plan");
}

void CommandLine::AddTrace() {
  CLI::App* const trace = Add("trace", "a copy of a debug trace without the meters' passwords, to hand on", trace_.common,
                              [this] { return CommandTrace(trace_); });
  trace->add_option("FILE", trace_.file, "the trace")->required();
  trace->add_option("--output", trace_.output, "file for the copy; otherwise standard output");
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
  history->add_flag("--excel", history_.excel, "CSV for spreadsheets with a decimal comma: semicolons, a mark of UTF-8 in front");
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

int CommandLine::Run(std::vector<std::string> arguments) {
  const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
  try {
    CheckCommand(arguments);
    // As the library wants them: from the last to the first.
    std::reverse(arguments.begin(), arguments.end());
    app_.parse(std::move(arguments));
    return End(chosen_(), json);
  } catch (const CLI::ParseError& error) {
    std::ostringstream text;
    const bool asked = app_.exit(error, text, std::cerr) == 0;
    Print(text.str());
    if (!asked && json) Print(ErrorJson(kExitUsage, error.what()) + '\n');
    return asked ? kExitDone : kExitUsage;
  } catch (const Failure& failure) {
    Complain(failure.what());
    return End(failure.Code(), json);
  } catch (const std::exception& error) {
    Complain(std::string(kInternalError) + error.what());
    return End(kExitInternal, json);
  }
}

// The library would only say that a word was not expected.
void CommandLine::CheckCommand(const std::vector<std::string>& arguments) const {
  if (arguments.empty() || arguments.front().starts_with('-')) return;
  std::vector<std::string> names;
  for (const CLI::App* const command : app_.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(command->get_name());
  if (std::find(names.begin(), names.end(), arguments.front()) != names.end()) return;
  throw Failure(kExitUsage, "there is no command \"" + arguments.front() + "\"" + DidYouMean(arguments.front(), names));
}

}  // namespace ostrel::host
