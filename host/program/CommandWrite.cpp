// ostrel-host write: leaves a write on a tag, polls until the plug-in has taken it, and says what became of it.
#include <fmt/format.h>

#include <cstdio>
#include <optional>

#include "host/program/Commands.h"
#include "host/session/ClientWrite.h"
#include "host/session/Session.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"
#include "host/show/WriteLog.h"

namespace ostrel::host {
namespace {

/// The first pass reads the value before, the second writes and reads back; the others are for a meter that misses some.
constexpr std::uint32_t kPasses = 5;

Config ConfigFor(const WriteOptions& options) {
  Config config = OnlyMeter(ReadConfig(options.common.config), options.meter);
  config.channels.front().pollPeriodSeconds = 0;
  MeterConfig& meter = config.channels.front().meters.front();
  meter.failHoldSeconds = 0;
  meter.exchange = true;
  meter.tags = {{.text = options.tag, .place = {}}};
  return config;
}

void PrintReport(const WriteOptions& options, const WriteReport& report) {
  if (options.common.json) {
    Print(WriteJson(report) + '\n');
  } else {
    Print(fmt::format("{}: {}\n  before   {}\n  sent     {}\n  after    {}\n  outcome  {}\n", report.meter, report.tag.name,
                      ValueText(report.before), ValueText(report.sent), ValueText(report.after), OutcomeText(report.outcome)));
  }
  if (!report.reason.empty()) Complain(report.meter + ": " + report.tag.name + ": " + report.reason);
}

// One pass for the value before, then the write until it is over or the passes are.
class WriteCourse {
 public:
  WriteCourse(const WriteOptions& options, std::size_t tag) : options_(options), tag_(tag) {}

  void AfterPass(Channel& channel, const PassReport& pass) {
    if (!write_) {
      write_.emplace(channel, *pass.meters.front().meter, tag_, options_.value);
      return;
    }
    report_ = pass.pass < kPasses ? write_->AfterPass() : std::optional(write_->GiveUp());
  }

  void GiveUp() { report_ = write_->GiveUp(); }
  [[nodiscard]] bool Begun() const { return write_.has_value(); }
  [[nodiscard]] const std::optional<WriteReport>& Report() const { return report_; }

 private:
  const WriteOptions& options_;
  std::size_t tag_;
  std::optional<ClientWrite> write_;
  std::optional<WriteReport> report_;
};

}  // namespace

ExitCode CommandWrite(const WriteOptions& options) {
  const Config config = ConfigFor(options);
  const Plugin plugin = Plugin::Load(options.common.module);
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  Meter& meter = *session.FindMeter(options.meter).meter;
  const std::size_t tag = meter.FindTag(options.tag);
  CheckWrite(meter.tags[tag], options.value);
  WriteLog log(config.writeLog);
  WriteCourse course(options, tag);
  session.Start(
      [&](Channel& channel, const PassReport& pass) {
        course.AfterPass(channel, pass);
        return course.Report().has_value();
      },
      kPasses);
  const bool finished = session.WaitUntilDone();
  session.Stop();
  if (course.Begun() && !course.Report()) course.GiveUp();
  if (course.Report()) log.Add(*course.Report());
  for (const LogLine& line : session.Events().TakeNew()) fmt::print(stderr, "{}\n", line.text);
  const std::string problem = session.Services().PortProblem(config.channels.front().port);
  if (!problem.empty()) throw Failure(kExitPort, config.channels.front().port + ": " + problem);
  if (!finished) return kExitInterrupted;
  if (!course.Report()) return kExitUnanswered;
  PrintReport(options, *course.Report());
  return course.Report()->outcome == WriteOutcome::Accepted ? kExitDone : kExitUnanswered;
}

}  // namespace ostrel::host
