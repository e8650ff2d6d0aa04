// ostrel-host demo: three simulated meters, polled and shown for a few seconds, with one write, a clock correction
// and a day of load.
#include <fmt/format.h>

#include <optional>
#include <vector>

#include "host/program/Commands.h"
#include "host/program/DemoLine.h"
#include "host/session/ClientWrite.h"
#include "host/session/HistoryReader.h"
#include "host/session/Session.h"
#include "host/session/TagSelection.h"
#include "host/show/HistoryOutput.h"
#include "host/show/LiveTable.h"
#include "host/show/Output.h"
#include "host/show/ProgressBar.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

constexpr const char* kWrittenTag = "LimitPowerWeekDay";
constexpr const char* kWrittenValue = "5000";
constexpr const char* kChartedTag = "P+ Profile Power";
constexpr std::uint32_t kStepMs = 50;
/// A slow machine may take so much longer until the write is through.
constexpr std::uint32_t kPatienceMs = 60000;

/// Off a terminal: the last table, then what happened.
class FinalTable final : public Output {
 public:
  ~FinalTable() override {
    Print(table_);
    for (const std::string& line : events_) Print(line + '\n');
  }
  void Pass(const std::string& channel, const PassReport& report) override { table_ = TableText(channel, report); }
  void Log(const LogLine& line) override { events_.push_back(line.text); }
  void Write(const WriteReport& report) override {
    events_.push_back(fmt::format("{}: {}: before {}, sent {}, read back {}: {}", report.meter, report.tag.name,
                                  ValueText(report.before), ValueText(report.sent), ValueText(report.after),
                                  OutcomeText(report.outcome)));
  }

 private:
  std::string table_;
  std::vector<std::string> events_;
};

std::unique_ptr<Output> MakeOutput(const DemoOptions& options) {
  if (options.common.json) return MakeJsonOutput(false);
  return platform::OutputIsTerminal() ? MakeLiveTable(false) : std::make_unique<FinalTable>();
}

class Demo {
 public:
  Demo(Session& session, Output& output) : session_(session), output_(output) {}

  void AfterPass(Channel& channel, const PassReport& report) {
    ShowEvents();
    output_.Pass(channel.Config().port, report);
    if (!write_) {
      Meter& meter = channel.Meters().front();
      write_.emplace(channel, meter, meter.FindTag(kWrittenTag), kWrittenValue);
    } else if (!outcome_) {
      const std::optional<WriteReport> over = write_->AfterPass();
      if (!over) return;
      outcome_ = over->outcome;
      output_.Write(*over);
    }
  }

  void ShowEvents() {
    for (const LogLine& line : session_.Events().TakeNew()) output_.Log(line);
  }

  [[nodiscard]] std::optional<WriteOutcome> Outcome() {
    std::optional<WriteOutcome> outcome;
    session_.Exclusively([&] { outcome = outcome_; });
    return outcome;
  }

 private:
  Session& session_;
  Output& output_;
  std::optional<ClientWrite> write_;
  std::optional<WriteOutcome> outcome_;
};

/// The first meter's load of the last day.
std::string DayChart(Session& session) {
  Channel& channel = *session.Channels().front();
  const Meter& meter = channel.Meters().front();
  const auto definitions = ReadTagDefinitions(channel.Protocol(), meter.type.id, kBranchHda);
  HistoryTag tag = DescribeHistoryTag(definitions[SelectTag(definitions, kChartedTag)], std::nullopt);
  std::string chart;
  const std::uint32_t width = platform::OutputIsTerminal() ? platform::OutputSize().columns : 80;
  const auto output =
      MakeHistoryOutput({.format = HistoryFormat::Chart, .width = width}, [&chart](std::string_view text) { chart += text; });
  output->Begin(meter.config.name, tag);
  ProgressBar progress;
  progress.Begin(tag.definition.name);
  const HistoryOutcome outcome =
      HistoryReader(HistoryClient(channel.Protocol(), meter.type.id, meter.index))
          .Read(
              tag, std::nullopt, std::nullopt, [&](const HistoryRecord& record) { output->Add(tag, record); },
              [&](std::size_t done, std::size_t expected) { progress.Show(done, expected); });
  output->End();
  return outcome == HistoryOutcome::Complete || outcome == HistoryOutcome::MemoryEnded ? chart : "";
}

void WaitForEnd(Demo& demo, std::uint32_t seconds) {
  const std::uint32_t start = platform::TickCount();
  const std::uint32_t wantedMs = seconds * 1000;
  while (!platform::Interrupted() && !OutputGone()) {
    const std::uint32_t elapsedMs = platform::TickCount() - start;
    if (elapsedMs >= wantedMs && (demo.Outcome() || elapsedMs - wantedMs >= kPatienceMs)) return;
    platform::Sleep(kStepMs);
  }
}

}  // namespace

ExitCode CommandDemo(const DemoOptions& options) {
  const Plugin plugin = Plugin::Load(options.common.module);
  const DemoLine line;
  std::unique_ptr<Output> output = MakeOutput(options);
  Session session(plugin, line.MakeConfig(), Session::Clocks::Keep);
  Demo demo(session, *output);
  session.Start(
      [&demo](Channel& channel, const PassReport& report) {
        demo.AfterPass(channel, report);
        return false;
      },
      0);
  WaitForEnd(demo, options.seconds);
  const std::string chart = options.common.json ? "" : DayChart(session);
  session.Stop();
  demo.ShowEvents();
  output.reset();
  Print(chart);
  return demo.Outcome() == WriteOutcome::Accepted ? kExitDone : kExitUnanswered;
}

}  // namespace ostrel::host
