#include "host/show/Output.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdio>

#include "host/show/JsonLines.h"

namespace ostrel::host {
namespace {

std::atomic<bool> outputGone{false};

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
    line_.clear();
    AppendPassJson(line_, channel, report);
    Print(line_ += '\n');
  }
  void Log(const LogLine& line) override { Print(LogJson(line) + '\n'); }
  void Write(const WriteReport& report) override { Print(WriteJson(report) + '\n'); }

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
                          ValueText(reading.value), QualityText(reading.quality)));
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

void Print(std::string_view text) {
  const bool whole = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (!whole || std::fflush(stdout) != 0) outputGone = true;
}

bool OutputGone() { return outputGone; }

std::unique_ptr<Output> MakeJsonOutput(bool everyPass) { return std::make_unique<JsonOutput>(everyPass); }

std::unique_ptr<Output> MakeLineOutput(bool everyPass) { return std::make_unique<LineOutput>(everyPass); }

}  // namespace ostrel::host
