#include "host/show/Output.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "host/show/JsonLines.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

std::atomic<bool> outputGone{false};
std::atomic<int> outputError{0};
std::string complaints;  // of the main thread alone

class JsonOutput final : public Output {
 public:
  explicit JsonOutput(bool everyPass) : everyPass_(everyPass) {}

  void Pass(const std::string& channel, const PassReport& report) override {
    for (const MeterReadings& meter : report.meters) {
      for (std::size_t i = 0; i < meter.tags.size(); ++i) {
        if (!everyPass_ && !meter.readings[i].changed) continue;
        const TagDefinition& tag = meter.meter->tags[meter.tags[i]].definition;
        Print(TagJson(channel, meter.meter->config, tag, meter.readings[i]) + '\n');
      }
    }
    for (const MeterReadings& meter : report.meters) Print(LinkJson(channel, meter) + '\n');
    line_.clear();
    AppendPassJson(line_, channel, report);
    Print(line_ += '\n');
  }
  void Log(const LogLine& line) override { Print(LogJson(line) + '\n'); }
  void Write(const WriteReport& report) override { Print(WriteJson(report) + '\n'); }
  void Refused(const Failure& failure) override {
    Output::Refused(failure);
    Print(ErrorJson(failure.Code(), failure.what()) + '\n');
  }

 private:
  bool everyPass_;
  std::string line_;  // of a pass; keeps its room
};

class LineOutput final : public Output {
 public:
  explicit LineOutput(bool everyPass) : everyPass_(everyPass) {}

  void Pass(const std::string& channel, const PassReport& report) override {
    for (const MeterReadings& meter : report.meters) {
      for (std::size_t i = 0; i < meter.tags.size(); ++i) {
        const TagReading& reading = meter.readings[i];
        if (!everyPass_ && !reading.changed) continue;
        const TagDefinition& tag = meter.meter->tags[meter.tags[i]].definition;
        Print(fmt::format("{} {}: {} = {} ({})\n", TimestampText(reading.timestamp), meter.meter->config.name, tag.name,
                          ValueText(reading.value), QualityWithAge(reading)));
      }
    }
    line_.clear();
    fmt::format_to(std::back_inserter(line_), "{} pass {} took {:.3f} s\n", channel, report.pass, report.seconds);
    Print(line_);
  }
  void Log(const LogLine& line) override { Print(line.text + '\n'); }
  void Write(const WriteReport& report) override {
    Print(fmt::format("{}: {}: before {}, sent {}, after {}: {}{}{}\n", report.meter, report.tag.name, ValueText(report.before),
                      ValueText(report.sent), ValueText(report.after), OutcomeText(report.outcome),
                      report.reason.empty() ? "" : ", ", report.reason));
  }

 private:
  bool everyPass_;
  std::string line_;  // of a pass; keeps its room
};

}  // namespace

void Output::Refused(const Failure& failure) { fmt::print(stderr, "{}\n", failure.what()); }

bool Output::Typed(const std::string& line) { return line.empty(); }

void Print(std::string_view text) {
  errno = 0;
  const bool whole = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (whole && std::fflush(stdout) == 0) return;
  int none = 0;
  outputError.compare_exchange_strong(none, errno == 0 ? EIO : errno);
  outputGone = true;
}

bool OutputGone() { return outputGone; }

std::string OutputProblem() {
  const int error = outputError;
  if (error == 0 || platform::OutputReaderHasGone(error)) return {};
  return "the output could not be written: " + std::error_code(error, std::generic_category()).message();
}

void Complain(const std::string& text) {
  fmt::print(stderr, "{}\n", text);
  complaints += (complaints.empty() ? "" : "; ") + text;
}

std::string Complaints() { return complaints; }

std::string LinkText(const LinkCounts& link) {
  std::string text = fmt::format("{} requests, {} lost", link.requests, link.Lost());
  if (link.Lost() != 0) text += fmt::format(" ({} silent, {} spoiled)", link.silent, link.spoiled);
  text += fmt::format(", answers after {} ms, at worst {} ms", link.medianMs, link.worstMs);
  return link.clockOffsetS ? text + fmt::format(", clock {:+} s", *link.clockOffsetS) : text;
}

std::unique_ptr<Output> MakeJsonOutput(bool everyPass) { return std::make_unique<JsonOutput>(everyPass); }

std::unique_ptr<Output> MakeLineOutput(bool everyPass) { return std::make_unique<LineOutput>(everyPass); }

}  // namespace ostrel::host
