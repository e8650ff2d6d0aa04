#include "host/show/HistoryOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "host/session/Failure.h"
#include "host/show/JsonLines.h"

namespace ostrel::host {
namespace {

std::string NumberText(const HistoryTag& tag, const HistoryRecord& record) {
  if (!record.value) return "-";
  // As short as it can be without losing anything of the tag's own precision.
  if (tag.definition.DataType() == VT_R8) return fmt::format("{}", *record.value);
  return fmt::format("{}", static_cast<float>(*record.value));
}

class TableOutput final : public HistoryOutput {
 public:
  explicit TableOutput(TextSink print) : print_(std::move(print)) {}
  void Begin(const std::string& meter, const HistoryTag& tag) override {
    print_(fmt::format("{}  {}  [{}]\n", meter, tag.definition.name, tag.unit));
  }
  void Add(const HistoryTag& tag, const HistoryRecord& record) override {
    print_(fmt::format("  {}  {:>16}  {}\n", WallTimeText(record.time), NumberText(tag, record),
                       HistoryQualityText(record.quality)));
  }
  void End() override {}

 private:
  TextSink print_;
};

/// Quotes what a separator or a quote would break.
std::string CsvField(const std::string& text) {
  if (text.find_first_of(",;\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char letter : text) quoted += letter == '"' ? "\"\"" : std::string(1, letter);
  return quoted + '"';
}

constexpr const char* kUtf8Mark = "\xEF\xBB\xBF";

class CsvOutput final : public HistoryOutput {
 public:
  CsvOutput(bool excel, TextSink print) : excel_(excel), print_(std::move(print)) {}
  void Begin(const std::string& meter, const HistoryTag& /*tag*/) override {
    meter_ = meter;
    if (std::exchange(headed_, true)) return;
    if (excel_) print_(kUtf8Mark);
    PrintRow({"meter", "id", "tag", "time", "value", "unit", "quality", "repeated_hour"});
  }
  void Add(const HistoryTag& tag, const HistoryRecord& record) override {
    PrintRow({CsvField(meter_), std::to_string(tag.definition.id), CsvField(tag.definition.name), Time(record.time),
              record.value ? Number(tag, record) : "", tag.unit, HistoryQualityText(record.quality),
              IsInRepeatedHour(record.time) ? "yes" : ""});
  }
  void End() override {}

 private:
  void PrintRow(const std::vector<std::string>& fields) const {
    print_(fmt::format("{}\r\n", fmt::join(fields, excel_ ? ";" : ",")));
  }
  // A spreadsheet takes a "T" between date and time for text.
  [[nodiscard]] std::string Time(WallTime time) const {
    std::string text = WallTimeText(time);
    if (excel_) std::replace(text.begin(), text.end(), 'T', ' ');
    return text;
  }
  [[nodiscard]] std::string Number(const HistoryTag& tag, const HistoryRecord& record) const {
    std::string text = NumberText(tag, record);
    if (excel_) std::replace(text.begin(), text.end(), '.', ',');
    return text;
  }

  const bool excel_;
  TextSink print_;
  std::string meter_;
  bool headed_ = false;
};

class JsonOutput final : public HistoryOutput {
 public:
  explicit JsonOutput(TextSink print) : print_(std::move(print)) {}
  void Begin(const std::string& meter, const HistoryTag& /*tag*/) override { meter_ = meter; }
  void Add(const HistoryTag& tag, const HistoryRecord& record) override { print_(HistoryJson(meter_, tag, record) + '\n'); }
  void End() override {}

 private:
  TextSink print_;
  std::string meter_;
};

class ChartOutput final : public HistoryOutput {
 public:
  ChartOutput(std::uint32_t width, TextSink print) : width_(width), print_(std::move(print)) {}
  void Begin(const std::string& meter, const HistoryTag& tag) override {
    meter_ = meter;
    tag_ = tag;
    records_.clear();
  }
  void Add(const HistoryTag& tag, const HistoryRecord& record) override {
    tag_ = tag;
    records_.push_back(record);
  }
  void End() override { print_(fmt::format("{}  {}\n", meter_, tag_.definition.name) + HistoryChart(tag_, records_, width_)); }

 private:
  std::uint32_t width_;
  TextSink print_;
  std::string meter_;
  HistoryTag tag_;
  std::vector<HistoryRecord> records_;
};

}  // namespace

HistoryFormat ParseHistoryFormat(const std::string& word) {
  constexpr std::pair<const char*, HistoryFormat> kFormats[] = {{"table", HistoryFormat::Table},
                                                                {"csv", HistoryFormat::Csv},
                                                                {"json", HistoryFormat::Json},
                                                                {"chart", HistoryFormat::Chart}};
  for (const auto& [name, format] : kFormats) {
    if (word == name) return format;
  }
  throw Failure(kExitUsage, fmt::format("--format: \"{}\" is none of table, csv, json, chart", word));
}

std::string HistoryQualityText(std::uint32_t quality) {
  switch (quality) {
    case kHistoryGood:
      return "good";
    case kHistoryBad:
      return "bad";
    case 0:
      return "none";
    default:
      return fmt::format("{:#x}", quality);
  }
}

std::unique_ptr<HistoryOutput> MakeHistoryOutput(const HistoryStyle& style, TextSink print) {
  switch (style.format) {
    case HistoryFormat::Csv:
      return std::make_unique<CsvOutput>(style.excel, std::move(print));
    case HistoryFormat::Json:
      return std::make_unique<JsonOutput>(std::move(print));
    case HistoryFormat::Chart:
      return std::make_unique<ChartOutput>(style.width, std::move(print));
    case HistoryFormat::Table:
      break;
  }
  return std::make_unique<TableOutput>(std::move(print));
}

}  // namespace ostrel::host
