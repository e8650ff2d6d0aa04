// ostrel-host run: polls until stopped, and takes writes from standard input meanwhile.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "host/program/Commands.h"
#include "host/program/WriteLine.h"
#include "host/session/ClientWrite.h"
#include "host/session/Session.h"
#include "host/show/LiveTable.h"
#include "host/show/Output.h"
#include "host/show/WriteLog.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

/// Event lines are shown after every pass, and so often while none ends.
constexpr std::uint32_t kEventStepMs = 1000;

std::unique_ptr<Output> MakeOutput(const RunOptions& options) {
  if (options.common.json) return MakeJsonOutput(options.everyPass);
  return platform::OutputIsTerminal() ? MakeLiveTable(true) : MakeLineOutput(options.everyPass);
}

/// Writes that were asked for, one at a time per channel. Used while no pass is being handled.
class WriteQueue {
 public:
  /// Without a log no write is taken.
  WriteQueue(Session& session, Output& output, std::optional<WriteLog> log)
      : session_(session), output_(output), log_(std::move(log)) {}

  void Add(const std::string& text) {
    const std::optional<WriteLine> line = ParseWriteLine(text);
    if (!line) throw Failure(kExitUsage, "a line must be: write METER TAG VALUE");
    if (!log_) throw Failure(kExitUsage, "writes are not allowed: start with --allow-writes");
    const MeterPlace place = session_.FindMeter(line->meter);
    const std::size_t tag = place.meter->FindTag(line->tag);
    // What is wrong with the value is said at once, not when its turn comes.
    CheckWrite(place.meter->tags[tag], line->value);
    waiting_[place.channel].push_back({.meter = place.meter, .tag = tag, .value = line->value});
    Begin(*place.channel);
  }

  void AfterPass(Channel& channel) {
    const auto at = active_.find(&channel);
    if (at == active_.end()) return;
    try {
      const std::optional<WriteReport> report = at->second.AfterPass();
      if (!report) return;
      log_->Add(*report);
      output_.Write(*report);
    } catch (const Failure& failure) {
      if (failure.Code() != kExitUsage) throw;
      // The value does not fit this meter: nothing was sent, and polling goes on.
      output_.Refused(failure);
    }
    active_.erase(at);
    Begin(channel);
  }

  /// What was begun and not finished when polling ends.
  void GiveUp() {
    for (auto& [channel, write] : active_) {
      const WriteReport report = write.GiveUp();
      log_->Add(report);
      output_.Write(report);
    }
    active_.clear();
  }

 private:
  struct Waiting {
    Meter* meter;
    std::size_t tag;
    std::string value;
  };

  void Begin(Channel& channel) {
    std::deque<Waiting>& waiting = waiting_[&channel];
    if (active_.contains(&channel) || waiting.empty()) return;
    const Waiting next = waiting.front();
    waiting.pop_front();
    active_.try_emplace(&channel, channel, *next.meter, next.tag, next.value);
  }

  Session& session_;
  Output& output_;
  std::optional<WriteLog> log_;
  std::map<Channel*, std::deque<Waiting>> waiting_;
  std::map<Channel*, ClientWrite> active_;
};

void ShowEvents(Session& session, Output& output) {
  for (const LogLine& line : session.Events().TakeNew()) output.Log(line);
}

void TakeInput(Session& session, Output& output, WriteQueue& writes, const std::string& line) {
  session.Exclusively([&] {
    if (output.Typed(line)) return;
    try {
      writes.Add(line);
    } catch (const Failure& failure) {
      output.Refused(failure);
    }
  });
}

/// How each meter fared in its last pass, for the end.
class RunSummary {
 public:
  void Add(const std::string& port, const PassReport& report) {
    for (const MeterReadings& meter : report.meters) {
      last_[port + ' ' + meter.meter->config.name] = {.served = Served(meter), .link = meter.link};
    }
  }
  [[nodiscard]] bool AllServed() const {
    return std::all_of(last_.begin(), last_.end(), [](const auto& each) { return each.second.served; });
  }
  void Print() const {
    for (const auto& [name, last] : last_) fmt::print(stderr, "{}: {}\n", name, LinkText(last.link));
  }

 private:
  struct Last {
    bool served;
    LinkCounts link;
  };

  // A meter that was lost has this quality on all its tags but the one that says so.
  static bool Served(const MeterReadings& meter) {
    std::size_t lost = 0;
    for (const TagReading& reading : meter.readings) lost += reading.quality == kQualityDeviceFailure ? 1 : 0;
    return lost == 0 || lost + 1 < meter.readings.size();
  }

  std::map<std::string, Last> last_;
};

ExitCode EndOf(Session& session, const RunSummary& summary, bool reachedEnd) {
  ExitCode code = reachedEnd ? kExitDone : kExitInterrupted;
  if (!summary.AllServed()) code = kExitUnanswered;
  return AllOpened(session) ? code : kExitPort;
}

struct Ending {
  platform::LineInput& input;
  std::uint32_t seconds;  // 0: none
};

void WaitForEnd(Session& session, Output& output, WriteQueue& writes, const Ending& ending) {
  const std::uint32_t start = platform::TickCount();
  while (!session.Done() && !platform::Interrupted() && !OutputGone()) {
    std::uint32_t step = kEventStepMs;
    if (ending.seconds != 0) {
      const std::uint32_t elapsed = platform::TickCount() - start;
      if (elapsed >= ending.seconds * 1000) return;
      step = std::min(step, ending.seconds * 1000 - elapsed);
    }
    std::string line;
    if (ending.input.Take(line, step)) TakeInput(session, output, writes, line);
    session.Exclusively([&] { ShowEvents(session, output); });
  }
}

}  // namespace

bool AllOpened(Session& session) {
  bool all = true;
  for (const auto& channel : session.Channels()) {
    const std::string problem = session.Services().PortProblem(channel->Config().port);
    if (problem.empty()) continue;
    Complain(channel->Config().port + ": " + problem);
    all = false;
  }
  return all;
}

ExitCode CommandRun(const RunOptions& options) {
  const Config config = ReadConfig(options.common.config);
  const Plugin plugin = Plugin::Load(options.common.module);
  std::unique_ptr<Output> output = MakeOutput(options);
  platform::LineInput input;
  Session session(plugin, config, Session::Clocks::Keep);
  WriteQueue writes(session, *output, options.allowWrites ? std::optional<WriteLog>(config.writeLog) : std::nullopt);
  RunSummary summary;
  session.Start(
      [&](Channel& channel, const PassReport& report) {
        ShowEvents(session, *output);
        output->Pass(channel.Config().port, report);
        summary.Add(channel.Config().port, report);
        writes.AfterPass(channel);
        if (OutputGone()) input.Wake();
        return false;
      },
      options.passes, [&input] { input.Wake(); });
  WaitForEnd(session, *output, writes, {.input = input, .seconds = options.seconds});
  session.Stop();
  writes.GiveUp();
  ShowEvents(session, *output);
  output.reset();
  if (!options.common.json) summary.Print();
  // Who polls until he is stopped has come to his end when he is.
  const bool endless = options.passes == 0 && options.seconds == 0;
  return endless ? kExitDone : EndOf(session, summary, !platform::Interrupted());
}

}  // namespace ostrel::host
