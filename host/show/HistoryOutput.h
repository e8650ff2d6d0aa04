// How history is shown: a table, CSV, JSON lines or a chart. Records come one at a time, oldest first; what can be printed at
// once is, so that an end before the end loses nothing.
#pragma once

#include <memory>
#include <string>

#include "host/session/HistoryTag.h"

namespace ostrel::host {

enum class HistoryFormat : std::uint8_t { Table, Csv, Json, Chart };

/// Throws Failure (usage) for any other word than table, csv, json and chart.
[[nodiscard]] HistoryFormat ParseHistoryFormat(const std::string& word);

class HistoryOutput {
 public:
  virtual ~HistoryOutput() = default;
  virtual void Begin(const std::string& meter, const HistoryTag& tag) = 0;
  /// `tag` with its period, which the first listing tells.
  virtual void Add(const HistoryTag& tag, const HistoryRecord& record) = 0;
  virtual void End() = 0;
};

/// Writes text somewhere: to standard output, to a file.
using TextSink = std::function<void(std::string_view)>;

struct HistoryStyle {
  HistoryFormat format = HistoryFormat::Table;
  std::uint32_t width = 80;  // of the terminal, for charts
  bool excel = false;        // CSV as spreadsheets with a decimal comma open it: semicolons, a mark of UTF-8 in front
};

[[nodiscard]] std::unique_ptr<HistoryOutput> MakeHistoryOutput(const HistoryStyle& style, TextSink print);

/// "good", "bad", or "none" where the plug-in gave no quality.
[[nodiscard]] std::string HistoryQualityText(std::uint32_t quality);

/// Bars of a series that is complete, with marks for bad records and for gaps.
[[nodiscard]] std::string HistoryChart(const HistoryTag& tag, const std::vector<HistoryRecord>& records, std::uint32_t width);

}  // namespace ostrel::host
