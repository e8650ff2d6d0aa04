// ostrel-host history: archives and load profiles of a meter, listed and read through the plug-in.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "host/program/Commands.h"
#include "host/session/HistoryReader.h"
#include "host/session/NearNames.h"
#include "host/session/Session.h"
#include "host/session/TagSelection.h"
#include "host/show/HistoryOutput.h"
#include "host/show/Output.h"
#include "host/show/ProgressBar.h"
#include "platform/console.h"
#include "platform/text.h"

namespace ostrel::host {
namespace {

Config ConfigFor(const HistoryOptions& options) {
  Config config = OnlyMeter(ReadConfig(options.common.config), options.meter);
  MeterConfig& meter = config.channels.front().meters.front();
  meter.polled = false;
  meter.exchange = true;
  return config;
}

struct Request {
  std::vector<HistoryTag> tags;
  std::optional<WallTime> from;
  std::optional<WallTime> to;
};

void AddTags(const std::vector<TagDefinition>& definitions, const HistoryOptions& options, Request& request) {
  std::vector<bool> chosen(definitions.size(), options.allTags);
  for (const std::string& text : options.tags) {
    for (const std::size_t tag : SelectTags(definitions, text)) chosen[tag] = true;
  }
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    if (chosen[i]) request.tags.push_back(DescribeHistoryTag(definitions[i], options.tariff));
  }
  if (request.tags.empty()) throw Failure(kExitUsage, "name a history tag, or --all-tags");
}

// No name is one of both branches.
void RejectCurrentTags(const std::vector<TagDefinition>& current, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const auto known = [&name](const TagDefinition& tag) { return Lowered(tag.name) == Lowered(name); };
    if (std::any_of(current.begin(), current.end(), known)) {
      throw Failure(kExitUsage, "\"" + name + "\" is a tag of current data: use `read`");
    }
  }
}

Request MakeRequest(IProtocol& protocol, const Meter& meter, const HistoryOptions& options) {
  Request request;
  if (!options.from.empty()) request.from = ParseWallTime("--from", options.from);
  if (!options.to.empty()) request.to = ParseWallTime("--to", options.to);
  if (request.from && request.to && *request.from > *request.to) throw Failure(kExitUsage, "--from is later than --to");
  if (options.allTags == options.csvFolder.empty()) throw Failure(kExitUsage, "--all-tags and --csv DIR go together");
  RejectCurrentTags(ReadTagDefinitions(protocol, meter.type.id, kBranchDa), options.tags);
  AddTags(ReadTagDefinitions(protocol, meter.type.id, kBranchHda), options, request);
  return request;
}

/// Letters that every file system takes.
std::string FileName(const TagDefinition& tag) {
  std::string name = fmt::format("{} {}.csv", tag.id, tag.name);
  for (char& letter : name) {
    const bool plain = std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '+' || letter == '-' || letter == '.';
    if (!plain) letter = '_';
  }
  return name;
}

/// A file that appears under its name when it is whole.
class WholeFile {
 public:
  explicit WholeFile(const std::filesystem::path& path)
      : path_(path), part_(std::filesystem::path(path) += ".part"), file_(part_, std::ios::binary) {
    if (!file_) Fail(part_);
  }
  void Write(std::string_view text) { file_.write(text.data(), static_cast<std::streamsize>(text.size())); }
  void Finish() {
    file_.close();
    std::error_code error;
    if (file_) std::filesystem::rename(part_, path_, error);
    if (!file_ || error) Fail(path_);
  }

 private:
  [[noreturn]] static void Fail(const std::filesystem::path& path) {
    const std::u8string name = path.u8string();
    throw Failure(kExitOutput, std::string(name.begin(), name.end()) + ": cannot be written");
  }

  std::filesystem::path path_;
  std::filesystem::path part_;
  std::ofstream file_;
};

class HistoryCommand {
 public:
  HistoryCommand(const HistoryOptions& options, Session& session, const MeterPlace& place)
      : options_(options),
        session_(session),
        place_(place),
        reader_(HistoryClient(place.channel->Protocol(), place.meter->type.id, place.meter->index)) {}

  HistoryOutcome Run(Request& request) { return options_.allTags ? ExportAll(request) : ShowAll(request); }

 private:
  HistoryOutcome ShowAll(Request& request) {
    const HistoryFormat format = options_.common.json ? HistoryFormat::Json : ParseHistoryFormat(options_.format);
    const std::uint32_t width = platform::OutputIsTerminal() ? platform::OutputSize().columns : 80;
    const auto output =
        MakeHistoryOutput({.format = format, .width = width, .excel = options_.excel}, [this](std::string_view text) {
          progress_.Hide();
          Print(text);
        });
    HistoryOutcome outcome = HistoryOutcome::Complete;
    for (HistoryTag& tag : request.tags) {
      outcome = ReadOne(request, tag, *output);
      if (outcome != HistoryOutcome::Complete || OutputGone()) break;
    }
    return outcome;
  }

  /// A file a tag. What was read of a tag that could not be finished stays too: its file is whole up to there.
  HistoryOutcome ExportAll(Request& request) {
    std::error_code error;
    std::filesystem::create_directories(platform::PathOf(options_.csvFolder), error);
    if (error) throw Failure(kExitOutput, options_.csvFolder + ": " + error.message());
    for (HistoryTag& tag : request.tags) {
      WholeFile file(platform::PathOf(options_.csvFolder) / FileName(tag.definition));
      const auto output = MakeHistoryOutput({.format = HistoryFormat::Csv, .excel = options_.excel},
                                            [&file](std::string_view text) { file.Write(text); });
      const HistoryOutcome outcome = ReadOne(request, tag, *output);
      file.Finish();
      if (outcome != HistoryOutcome::Complete) return outcome;
    }
    return HistoryOutcome::Complete;
  }

  HistoryOutcome ReadOne(const Request& request, HistoryTag& tag, HistoryOutput& output) {
    progress_.Begin(tag.definition.name);
    output.Begin(place_.meter->config.name, tag);
    std::optional<WallTime> last;
    const HistoryOutcome outcome = reader_.Read(
        tag, request.from, request.to,
        [&](const HistoryRecord& record) {
          last = record.time;
          output.Add(tag, record);
        },
        [this](std::size_t done, std::size_t expected) { progress_.Show(done, expected); });
    progress_.Hide();
    output.End();
    for (const LogLine& line : session_.Events().TakeNew()) fmt::print(stderr, "{}\n", line.text);
    if (outcome != HistoryOutcome::MemoryEnded) return outcome;
    ReportEnd(tag, last);
    return HistoryOutcome::Complete;
  }

  void ReportEnd(const HistoryTag& tag, const std::optional<WallTime>& last) const {
    const std::string end = last ? "ends at " + WallTimeText(*last) : "holds no record of the interval";
    fmt::print(stderr, "{}: {}: the meter's memory {}\n", options_.meter, tag.definition.name, end);
  }

  const HistoryOptions& options_;
  Session& session_;
  MeterPlace place_;
  HistoryReader reader_;
  ProgressBar progress_;
};

ExitCode Report(HistoryOutcome outcome, const HistoryOptions& options) {
  switch (outcome) {
    case HistoryOutcome::Unanswered:
      Complain(options.meter + ": the meter did not answer; what was read before stands");
      return kExitUnanswered;
    case HistoryOutcome::Interrupted:
      Complain(options.meter + ": ended before all was read");
      return kExitInterrupted;
    case HistoryOutcome::MemoryEnded:
    case HistoryOutcome::Complete:
      break;
  }
  return kExitDone;
}

}  // namespace

ExitCode CommandHistory(const HistoryOptions& options) {
  const HistoryFormat format = ParseHistoryFormat(options.format);
  if (options.excel && !options.allTags && format != HistoryFormat::Csv) throw Failure(kExitUsage, "--excel is for --format csv");
  const Config config = ConfigFor(options);
  const Plugin plugin = Plugin::Load(options.common.module);
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  const MeterPlace place = session.FindMeter(options.meter);
  Request request = MakeRequest(place.channel->Protocol(), *place.meter, options);
  // Polling runs with no tag in use: without it the plug-in would make one try of each request.
  session.Start([](Channel&, const PassReport&) { return false; }, 0);
  const HistoryOutcome outcome = HistoryCommand(options, session, place).Run(request);
  session.Stop();
  const std::string problem = session.Services().PortProblem(config.channels.front().port);
  if (!problem.empty()) throw Failure(kExitPort, config.channels.front().port + ": " + problem);
  return Report(outcome, options);
}

}  // namespace ostrel::host
