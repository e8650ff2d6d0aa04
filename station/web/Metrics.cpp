#include "station/web/Metrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>

#include "platform/clock.h"

namespace ostrel::station {
namespace {

std::string Escaped(const std::string& text) { return Replaced(Replaced(text, "\\", "\\\\"), "\"", "\\\""); }

class Page {
 public:
  void Family(const char* name, const char* kind, const char* help) {
    fmt::format_to(std::back_inserter(text_), "# HELP {0} {2}\n# TYPE {0} {1}\n", name, kind, help);
    name_ = name;
  }
  void Add(const std::string& labels, double value, const char* suffix = "") {
    fmt::format_to(std::back_inserter(text_), "{}{}{}{}{} {}\n", name_, suffix, labels.empty() ? "" : "{", labels,
                   labels.empty() ? "" : "}", value);
  }
  [[nodiscard]] std::string Take() { return std::move(text_); }

 private:
  std::string text_;
  const char* name_ = "";
};

std::string LabelsOf(const LiveMeter& meter) {
  return fmt::format("channel=\"{}\",meter=\"{}\"", Escaped(meter.channel), Escaped(meter.name));
}

struct MeterRowOfMetrics {
  const char* name;
  const char* kind;
  const char* help;
  std::optional<double> (*value)(const LiveMeter& meter);
};

constexpr MeterRowOfMetrics kMeterRows[] = {
    {"ostrel_meter_linked", "gauge", "1 while the meter answers",
     [](const LiveMeter& m) -> std::optional<double> { return m.linked ? 1 : 0; }},
    {"ostrel_requests_total", "counter", "requests sent",
     [](const LiveMeter& m) -> std::optional<double> { return m.figures.requests; }},
    {"ostrel_answers_total", "counter", "answers with a right check",
     [](const LiveMeter& m) -> std::optional<double> { return m.figures.answers; }},
    {"ostrel_clock_offset_seconds", "gauge", "the meter's clock ahead of the station's",
     [](const LiveMeter& m) -> std::optional<double> {
       if (!m.figures.clockOffsetSeconds) return std::nullopt;
       return static_cast<double>(*m.figures.clockOffsetSeconds);
     }},
    {"ostrel_completeness_ratio", "gauge", "stored of the expected records of 30 days",
     [](const LiveMeter& m) { return m.fill.completeness; }},
    {"ostrel_fill_missing_records", "gauge", "records known to be missing",
     [](const LiveMeter& m) -> std::optional<double> { return m.fill.missing; }},
    {"ostrel_fill_seconds", "gauge", "time that fetching them will take",
     [](const LiveMeter& m) -> std::optional<double> { return m.fill.secondsLeft; }},
};

void AddMeters(Page& page, const std::vector<LiveMeter>& meters) {
  for (const MeterRowOfMetrics& row : kMeterRows) {
    page.Family(row.name, row.kind, row.help);
    for (const LiveMeter& meter : meters) {
      if (const std::optional<double> value = row.value(meter)) page.Add(LabelsOf(meter), *value);
    }
  }
  page.Family("ostrel_losses_total", "counter", "requests without a right answer, by kind");
  for (const LiveMeter& meter : meters) {
    page.Add(LabelsOf(meter) + ",kind=\"silent\"", static_cast<double>(meter.figures.silent));
    page.Add(LabelsOf(meter) + ",kind=\"spoiled\"", static_cast<double>(meter.figures.spoiled));
  }
}

void AddTurnaround(Page& page, const std::vector<LiveMeter>& meters) {
  page.Family("ostrel_turnaround_seconds", "histogram", "from the end of a request to the first byte of its answer");
  for (const LiveMeter& meter : meters) {
    std::int64_t count = 0;
    for (std::size_t i = 0; i < meter.figures.turnaround.size(); ++i) {
      count += meter.figures.turnaround[i];
      const std::string end = i < kTurnaroundMs.size() ? fmt::format("{}", kTurnaroundMs[i] / 1000.0) : "+Inf";
      page.Add(fmt::format("{},le=\"{}\"", LabelsOf(meter), end), static_cast<double>(count), "_bucket");
    }
    page.Add(LabelsOf(meter), static_cast<double>(meter.figures.turnaroundSumMs) / 1000.0, "_sum");
    page.Add(LabelsOf(meter), static_cast<double>(count), "_count");
  }
}

// By quality and meter, not by tag: hundreds of tags a meter would each be a series of their own.
void AddQuality(Page& page, WebParts& parts, const std::vector<LiveMeter>& meters) {
  page.Family("ostrel_tags", "gauge", "polled tags by quality");
  const std::int64_t now = platform::UtcMilliseconds();
  std::vector<std::pair<std::string, double>> oldest;
  for (const LiveMeter& summary : meters) {
    std::map<std::uint16_t, int> qualities;
    std::int64_t age = 0;
    const std::optional<LiveMeter> meter = parts.live.Meter(summary.name);
    if (!meter) continue;
    for (const LiveTag& tag : meter->tags) {
      ++qualities[tag.reading.quality];
      if (tag.reading.quality == 192) age = std::max(age, now - UtcMs(tag.reading.timestamp));
    }
    for (const auto& [quality, count] : qualities) page.Add(fmt::format("{},quality=\"{}\"", LabelsOf(summary), quality), count);
    oldest.emplace_back(LabelsOf(summary), static_cast<double>(age) / 1000.0);
  }
  page.Family("ostrel_value_age_seconds", "gauge", "age of the oldest good value of the meter");
  for (const auto& [labels, age] : oldest) page.Add(labels, age);
}

void AddChannels(Page& page, WebParts& parts) {
  const std::vector<LiveChannel> channels = parts.live.Channels();
  page.Family("ostrel_pass_seconds", "gauge", "time that the last pass took");
  for (const LiveChannel& channel : channels) page.Add(fmt::format("channel=\"{}\"", Escaped(channel.port)), channel.passSeconds);
  page.Family("ostrel_period_seconds", "gauge", "time from one pass to the next, as configured");
  for (const LiveChannel& channel : channels)
    page.Add(fmt::format("channel=\"{}\"", Escaped(channel.port)), channel.periodSeconds);
  page.Family("ostrel_port_problem", "gauge", "1 while the channel's device cannot be used");
  for (const LiveChannel& channel : channels)
    page.Add(fmt::format("channel=\"{}\"", Escaped(channel.port)), channel.problem.empty() ? 0 : 1);
}

void AddQueues(Page& page, WebParts& parts) {
  const WriterState writer = parts.writer.State();
  page.Family("ostrel_archive_waiting", "gauge", "write jobs that wait for the archive");
  page.Add("", static_cast<double>(writer.waiting));
  page.Family("ostrel_archive_dropped_total", "counter", "write jobs given up");
  page.Add("", static_cast<double>(writer.dropped));
  page.Family("ostrel_archive_up", "gauge", "1 while the archive takes what comes");
  page.Add("", writer.problem.empty() ? 1 : 0);
  const std::optional<bool> broker = parts.brokerConnected();
  if (!broker) return;
  page.Family("ostrel_broker_up", "gauge", "1 while the broker is connected");
  page.Add("", *broker ? 1 : 0);
  try {
    Readers::Lease archive(parts.readers);
    const auto waiting = static_cast<double>(archive->CountWaiting(parts.station));
    page.Family("ostrel_outbox_waiting", "gauge", "messages that wait for the broker");
    page.Add("", waiting);
  } catch (const DatabaseError&) {
    // ostrel_archive_up says it.
  }
}

}  // namespace

std::string MetricsText(WebParts& parts) {
  Page page;
  const std::vector<LiveMeter> meters = parts.live.Summaries();
  AddMeters(page, meters);
  AddTurnaround(page, meters);
  AddQuality(page, parts, meters);
  AddChannels(page, parts);
  AddQueues(page, parts);
  return page.Take();
}

}  // namespace ostrel::station
