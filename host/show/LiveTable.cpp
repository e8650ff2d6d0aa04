#include "host/show/LiveTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "host/session/NearNames.h"
#include "host/session/TagSelection.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

constexpr std::size_t kLeastDescription = 24;
constexpr std::size_t kEventLines = 4;
constexpr const char* kHome = "\x1b[H";
constexpr const char* kClearScreen = "\x1b[2J";
constexpr const char* kClearToEnd = "\x1b[K\n";
constexpr const char* kClearBelow = "\x1b[J";
constexpr const char* kKeepCursor =
    "\x1b"
    "7";
constexpr const char* kCursorBack =
    "\x1b"
    "8";
constexpr const char* kNoPrompt = "\r\x1b[K";
constexpr const char* kPrompt = "\x1b[K> ";

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

/// A heading, or a tag in columns.
struct TableLine {
  std::string heading;
  std::string name;
  std::string value;
  std::string quality;
  std::string description;
};

TableLine TagLine(const TagDefinition& tag, const TagReading& reading) {
  return {.heading = {},
          .name = tag.name,
          .value = ValueText(reading.value),
          .quality = QualityWithAge(reading),
          .description = tag.description};
}

bool Fits(const TagDefinition& tag, const std::string& filter) {
  const std::string pattern = '*' + Lowered(filter) + '*';
  return WildcardMatches(pattern, Lowered(tag.name)) || WildcardMatches(pattern, Lowered(tag.description));
}

// Of one channel, with the tags that fit.
void AddLines(const std::string& channel, const PassReport& report, const std::string& filter, std::vector<TableLine>& lines) {
  lines.push_back({.heading = Heading(channel, report)});
  for (const MeterReadings& meter : report.meters) {
    lines.push_back({.heading = MeterHeading(meter)});
    for (std::size_t i = 0; i < meter.tags.size(); ++i) {
      const TagDefinition& tag = meter.meter->tags[meter.tags[i]].definition;
      if (Fits(tag, filter)) lines.push_back(TagLine(tag, meter.readings[i]));
    }
  }
}

std::size_t Widest(const std::vector<TableLine>& lines, std::string TableLine::*column) {
  std::size_t widest = 0;
  for (const TableLine& line : lines) widest = std::max(widest, DisplayWidth(line.*column));
  return widest;
}

// Columns as wide as they need to be; a description that finds no room beside its tag stands below it.
std::vector<std::string> LayOut(const std::vector<TableLine>& lines, std::size_t columns) {
  const std::size_t name = Widest(lines, &TableLine::name);
  const std::size_t value = Widest(lines, &TableLine::value);
  const std::size_t quality = Widest(lines, &TableLine::quality);
  const std::size_t before = name + value + quality + 5;  // two blanks at the edge and one behind each column
  std::vector<std::string> texts;
  for (const TableLine& line : lines) {
    std::string text = line.heading;
    if (text.empty())
      text = "  " + Padded(line.name, name) + ' ' + Padded(line.value, value) + ' ' + Padded(line.quality, quality);
    const bool beside = before + std::min(DisplayWidth(line.description), kLeastDescription) <= columns;
    if (beside && !line.description.empty()) text += ' ' + line.description;
    texts.push_back(text);
    if (!beside) texts.push_back("      " + line.description);
  }
  return texts;
}

class LiveTable final : public Output {
 public:
  explicit LiveTable(bool takesLines) : takes_lines_(takesLines) {}
  ~LiveTable() override {
    if (takes_lines_) Print(kNoPrompt);
  }

  void Pass(const std::string& channel, const PassReport& report) override {
    latest_[channel] = report;
    Draw();
  }
  void Log(const LogLine& line) override { AddEvent(line.text); }
  void Write(const WriteReport& report) override {
    AddEvent(fmt::format("{}: {}: {} -> {}: {}", report.meter, report.tag.name, ValueText(report.before), ValueText(report.after),
                         OutcomeText(report.outcome)));
  }
  void Refused(const Failure& failure) override { AddEvent(failure.what()); }
  bool Typed(const std::string& line) override;

 private:
  void AddEvent(const std::string& text) {
    events_.push_back(text);
    if (events_.size() > kEventLines) events_.pop_front();
    if (!latest_.empty()) Draw();
  }
  void Draw();
  [[nodiscard]] std::vector<std::string> Page(std::size_t columns, std::size_t rows);
  [[nodiscard]] std::string Hint(std::size_t shown, std::size_t all) const;

  const bool takes_lines_;
  std::map<std::string, PassReport> latest_;
  std::deque<std::string> events_;
  std::string filter_;
  std::size_t first_ = 0;  // line of the table on top
  std::size_t page_ = 1;   // lines that are seen at a time
  bool prompt_due_ = true;
};

// An empty line turns the page, "-" turns it back, "/TEXT" leaves the tags with that text. The cursor has gone to another line
// with the end of this one, so that it is put back in any case.
bool LiveTable::Typed(const std::string& line) {
  prompt_due_ = true;
  const bool forTable = line.empty() || line == "-" || line.front() == '/';
  if (line.empty()) first_ += page_;
  if (line == "-") first_ -= std::min(first_, page_);
  if (line.starts_with('/')) {
    filter_ = line.substr(1);
    first_ = 0;
  }
  Draw();
  return forTable;
}

std::string LiveTable::Hint(std::size_t shown, std::size_t all) const {
  const std::string only = filter_.empty() ? "" : fmt::format(" with \"{}\"", filter_);
  return fmt::format("-- lines {} to {} of {}{}; Enter: on, -: back, /TEXT: filter, Ctrl-C: end", first_ + 1, first_ + shown, all,
                     only);
}

std::vector<std::string> LiveTable::Page(std::size_t columns, std::size_t rows) {
  std::vector<TableLine> lines;
  for (const auto& [channel, report] : latest_) AddLines(channel, report, filter_, lines);
  std::vector<std::string> texts = LayOut(lines, columns);
  const std::size_t below = events_.size() + 2;
  page_ = rows > below ? rows - below : 1;
  if (first_ >= texts.size()) first_ = 0;
  const std::size_t all = texts.size();
  texts.erase(texts.begin(), texts.begin() + static_cast<std::ptrdiff_t>(first_));
  texts.resize(takes_lines_ ? page_ : std::min(page_, texts.size()));
  texts.insert(texts.end(), events_.begin(), events_.end());
  if (takes_lines_) texts.push_back(Hint(std::min(page_, all - first_), all));
  return texts;
}

// What is being typed in the last line stays untouched.
void LiveTable::Draw() {
  const platform::TerminalSize size = platform::OutputSize();
  const bool anew = !takes_lines_ || std::exchange(prompt_due_, false);
  std::string text = anew ? (takes_lines_ ? kClearScreen : "") : kKeepCursor;
  text += kHome;
  for (const std::string& line : Page(size.columns, size.rows)) {
    text += Padded(line, std::min<std::size_t>(size.columns, DisplayWidth(line))) + kClearToEnd;
  }
  if (!takes_lines_) text += kClearBelow;
  if (takes_lines_) text += anew ? kPrompt : kCursorBack;
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
  std::vector<TableLine> lines;
  AddLines(channel, report, {}, lines);
  std::string text;
  for (const std::string& line : LayOut(lines, SIZE_MAX)) {
    text += line;
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

std::unique_ptr<Output> MakeLiveTable(bool takesLines) { return std::make_unique<LiveTable>(takesLines); }

}  // namespace ostrel::host
