#include "host/show/LiveTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <map>
#include <vector>

#include "platform/console.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kNameWidth = 36;
constexpr std::size_t kValueWidth = 22;
constexpr std::size_t kQualityWidth = 16;
constexpr std::size_t kEventLines = 4;
constexpr const char* kHomeAndClear = "\x1b[H\x1b[J";

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

std::string Heading(const std::string& channel, const PassReport& report) {
  const bool late = report.seconds > report.periodSeconds + 0.5;
  return fmt::format("{}  pass {}  {:.2f} s{}", channel, report.pass, report.seconds,
                     late ? fmt::format(", longer than the period of {} s", report.periodSeconds) : "");
}

std::string MeterHeading(const MeterReadings& readings) {
  const Meter& meter = *readings.meter;
  return fmt::format("{}  {}  address {}  {}", meter.config.name, meter.type.display, meter.config.address,
                     LinkText(readings.link));
}

std::string Row(const TagDefinition& tag, const TagReading& reading) {
  return "  " + Padded(tag.name, kNameWidth) + ' ' + Padded(ValueText(reading.value), kValueWidth) + ' ' +
         Padded(QualityWithAge(reading), kQualityWidth) + ' ' + tag.description;
}

// Lines of one channel; each meter shows at most `rowsPerMeter` tags.
std::vector<std::string> TableLines(const std::string& channel, const PassReport& report, std::size_t rowsPerMeter) {
  std::vector<std::string> lines = {Heading(channel, report)};
  for (const MeterReadings& meter : report.meters) {
    lines.push_back(MeterHeading(meter));
    const std::size_t shown = std::min(meter.tags.size(), rowsPerMeter);
    for (std::size_t i = 0; i < shown; ++i) lines.push_back(Row(meter.meter->tags[meter.tags[i]].definition, meter.readings[i]));
    if (shown < meter.tags.size()) lines.push_back(fmt::format("  ... and {} more", meter.tags.size() - shown));
  }
  return lines;
}

class LiveTable final : public Output {
 public:
  void Pass(const std::string& channel, const PassReport& report) override {
    latest_[channel] = report;
    Draw();
  }
  void Log(const LogLine& line) override { AddEvent(line.text); }
  void Write(const WriteReport& report) override {
    AddEvent(fmt::format("{}: {}: {} -> {}: {}", report.meter, report.tag.name, ValueText(report.before), ValueText(report.after),
                         OutcomeText(report.outcome)));
  }

 private:
  void AddEvent(const std::string& text) {
    events_.push_back(text);
    if (events_.size() > kEventLines) events_.pop_front();
    if (!latest_.empty()) Draw();
  }
  void Draw() const;
  [[nodiscard]] std::size_t RowsPerMeter(std::size_t rows) const;

  std::map<std::string, PassReport> latest_;
  std::deque<std::string> events_;
};

std::size_t LiveTable::RowsPerMeter(std::size_t rows) const {
  std::size_t meters = 0;
  for (const auto& [channel, report] : latest_) meters += report.meters.size();
  const std::size_t fixed = latest_.size() + 2 * meters + kEventLines + 1;
  return meters == 0 || rows <= fixed ? 1 : std::max<std::size_t>(1, (rows - fixed) / meters);
}

void LiveTable::Draw() const {
  const platform::TerminalSize size = platform::OutputSize();
  std::vector<std::string> lines;
  for (const auto& [channel, report] : latest_) {
    for (std::string& line : TableLines(channel, report, RowsPerMeter(size.rows))) lines.push_back(std::move(line));
  }
  const std::size_t room = size.rows > events_.size() + 1 ? size.rows - events_.size() - 1 : 1;
  if (lines.size() > room) lines.resize(room);
  lines.insert(lines.end(), events_.begin(), events_.end());
  std::string text = kHomeAndClear;
  for (const std::string& line : lines) text += Padded(line, std::min<std::size_t>(size.columns, DisplayWidth(line))) + '\n';
  Print(text);
}

}  // namespace

std::size_t DisplayWidth(const std::string& text) {
  return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), IsContinuation));
}

std::string Padded(const std::string& text, std::size_t width) {
  std::size_t shown = 0;
  std::size_t end = 0;
  while (end < text.size() && (shown < width || IsContinuation(text[end]))) {
    if (!IsContinuation(text[end])) ++shown;
    ++end;
  }
  return text.substr(0, end) + std::string(width - std::min(width, shown), ' ');
}

std::string TableText(const std::string& channel, const PassReport& report) {
  std::string text;
  for (const std::string& line : TableLines(channel, report, SIZE_MAX)) {
    text += line;
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

std::unique_ptr<Output> MakeLiveTable() { return std::make_unique<LiveTable>(); }

}  // namespace ostrel::host
