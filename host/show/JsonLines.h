// The JSON lines that programs read, one object each, without a line end.
#pragma once

#include <string>

#include "host/session/Channel.h"
#include "host/session/ClientWrite.h"
#include "host/session/EventLog.h"
#include "host/session/HistoryTag.h"
#include "host/session/LineFinding.h"
#include "host/session/LineScan.h"
#include "host/session/PassPlan.h"

namespace ostrel::host {

/// How a value came about. Frames in hexadecimal; empty when the meter was not asked.
struct WhyReport {
  std::string request;
  std::string answer;
  std::string bytes;
  std::string formula;
  std::string factors;
  std::string reason;  // of the quality
};

[[nodiscard]] std::string TagJson(const std::string& channel, const MeterConfig& meter, const TagDefinition& tag,
                                  const TagReading& reading);
/// A pass goes by often and without news: its line is put where there is room for it.
void AppendPassJson(std::string& line, const std::string& channel, const PassReport& report);
[[nodiscard]] std::string LinkJson(const std::string& channel, const MeterReadings& meter);
/// Why a command ended early, with its exit code.
[[nodiscard]] std::string ErrorJson(int code, const std::string& message);
[[nodiscard]] std::string LogJson(const LogLine& line);
[[nodiscard]] std::string WriteJson(const WriteReport& report);
/// The lines of the log of writes: with when and by whom.
[[nodiscard]] std::string LoggedWriteJson(const std::string& time, const std::string& user, const WriteReport& report);
[[nodiscard]] std::string LoggedFrameJson(const std::string& time, const std::string& user, const std::string& channel,
                                          const std::string& request, const std::string& answer);
[[nodiscard]] std::string HistoryJson(const std::string& meter, const HistoryTag& tag, const HistoryRecord& record);
[[nodiscard]] std::string TypeJson(const MeterType& type);
/// `branch` is kBranchDa or kBranchHda.
[[nodiscard]] std::string TagDefinitionJson(std::uint32_t branch, const TagDefinition& tag);
/// `meter` null for the line itself.
[[nodiscard]] std::string DoctorJson(const std::string& channel, const MeterConfig* meter, const Diagnosis& diagnosis);
[[nodiscard]] std::string ScanJson(const ChannelConfig& channel, const ScanResult& result);
/// `measured` null when nothing was.
[[nodiscard]] std::string PlanJson(const ChannelConfig& channel, const PassPlan& plan, const Cost* measured);
[[nodiscard]] std::string WhyJson(const std::string& meter, const TagDefinition& tag, const WhyReport& why);
[[nodiscard]] std::string ExchangeJson(const std::string& channel, const std::string& request, const std::string& answer,
                                       bool checkRight);

}  // namespace ostrel::host
