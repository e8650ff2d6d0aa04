#include "host/show/JsonLines.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

#include "host/show/JsonText.h"

namespace ostrel::host {
namespace {

// The double whose shortest text is the float's: 0.1, not 0.10000000149011612. What JSON cannot hold is null.
Json NumberJson(float number) {
  if (!std::isfinite(number)) return nullptr;
  const std::string text = fmt::format("{}", number);
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

Json ValueJson(const Value& value) {
  if (std::holds_alternative<std::monostate>(value)) return nullptr;
  if (const auto* const number = std::get_if<float>(&value)) return NumberJson(*number);
  if (const auto* const whole = std::get_if<std::int32_t>(&value)) return *whole;
  if (const auto* const truth = std::get_if<bool>(&value)) return *truth;
  return std::get<std::string>(value);
}

bool IsPlain(char character) { return character >= ' ' && character <= '~' && character != '"' && character != '\\'; }

void AppendText(std::string& line, const std::string& text) {
  if (!std::ranges::all_of(text, IsPlain)) {
    line += Dump(text);
    return;
  }
  line += '"';
  line += text;
  line += '"';
}

}  // namespace

std::string TagJson(const std::string& channel, const MeterConfig& meter, const TagDefinition& tag, const TagReading& reading) {
  Json json = Event("tag");
  json["channel"] = channel;
  json["meter"] = meter.name;
  json["address"] = meter.address;
  json["id"] = tag.id;
  json["tag"] = tag.name;
  json["value"] = ValueJson(reading.value);
  json["quality"] = reading.quality;
  json["quality_name"] = QualityText(reading.quality);
  json["timestamp"] = TimestampText(reading.timestamp);
  if (reading.quality != kQualityGood && reading.lastGood) json["last_good"] = TimestampText(*reading.lastGood);
  return Dump(json);
}

std::string LinkJson(const std::string& channel, const MeterReadings& meter) {
  const LinkCounts& link = meter.link;
  Json json = Event("link");
  json["channel"] = channel;
  json["meter"] = meter.meter->config.name;
  json["address"] = meter.meter->config.address;
  json["requests"] = link.requests;
  json["answers"] = link.answers;
  json["silent"] = link.silent;
  json["spoiled"] = link.spoiled;
  json["retries"] = link.retries;
  json["repeats"] = link.repeats;
  json["turnaround_median_ms"] = link.medianMs;
  json["turnaround_worst_ms"] = link.worstMs;
  json["clock_offset_s"] = link.clockOffsetS ? Json(*link.clockOffsetS) : Json(nullptr);
  return Dump(json);
}

std::string ErrorJson(int code, const std::string& message) {
  Json json = Event("error");
  json["code"] = code;
  json["message"] = message;
  return Dump(json);
}

void AppendPassJson(std::string& line, const std::string& channel, const PassReport& report) {
  fmt::format_to(std::back_inserter(line), R"({{"event":"pass","version":{},"channel":)", kJsonVersion);
  AppendText(line, channel);
  fmt::format_to(std::back_inserter(line), R"(,"pass":{},"seconds":)", report.pass);
  const std::size_t number = line.size();
  fmt::format_to(std::back_inserter(line), "{}", report.seconds);
  if (line.find_first_of(".e", number) == std::string::npos) line += ".0";
  fmt::format_to(std::back_inserter(line), R"(,"period_s":{}}})", report.periodSeconds);
}

std::string LogJson(const LogLine& line) {
  Json json = Event("log");
  json["channel"] = line.channel;
  json["text"] = line.text;
  return Dump(json);
}

namespace {

void AddWrite(Json& json, const WriteReport& report) {
  json["channel"] = report.channel;
  json["meter"] = report.meter;
  json["address"] = report.address;
  json["id"] = report.tag.id;
  json["tag"] = report.tag.name;
  json["before"] = ValueJson(report.before);
  json["sent"] = ValueJson(report.sent);
  json["after"] = ValueJson(report.after);
  json["outcome"] = OutcomeText(report.outcome);
  json["reason"] = report.reason;
}

// One of the two lines that a log of writes is made of.
Json Logged(const char* event, const std::string& time, const std::string& user) {
  Json json = Event(event);
  json["time"] = time;
  json["user"] = user;
  return json;
}

}  // namespace

std::string WriteJson(const WriteReport& report) {
  Json json = Event("write");
  AddWrite(json, report);
  return Dump(json);
}

std::string LoggedWriteJson(const std::string& time, const std::string& user, const WriteReport& report) {
  Json json = Logged("write", time, user);
  AddWrite(json, report);
  return Dump(json);
}

std::string LoggedFrameJson(const std::string& time, const std::string& user, const std::string& channel,
                            const std::string& request, const std::string& answer) {
  Json json = Logged("frame", time, user);
  json["channel"] = channel;
  json["request"] = request;
  json["answer"] = answer;
  return Dump(json);
}

std::string HistoryJson(const std::string& meter, const HistoryTag& tag, const HistoryRecord& record) {
  Json json = Event("history");
  json["meter"] = meter;
  json["id"] = tag.definition.id;
  json["tag"] = tag.definition.name;
  json["time"] = WallTimeText(record.time);
  json["value"] = nullptr;
  if (record.value && tag.definition.DataType() == VT_R8 && std::isfinite(*record.value)) json["value"] = *record.value;
  if (record.value && tag.definition.DataType() != VT_R8) json["value"] = NumberJson(static_cast<float>(*record.value));
  json["quality"] = record.quality;
  return Dump(json);
}

std::string TypeJson(const MeterType& type) {
  Json json = Event("type");
  json["type"] = type.id;
  json["name"] = type.name;
  json["display"] = type.display;
  return Dump(json);
}

// In the order of DescriptorColumn.
constexpr const char* kDescriptorNames[] = {"data_type", "code",        "parameter",       "sub_parameter", "request_bytes",
                                            "access",    "write_bytes", "write_parameter", "aux",           "answer_bytes"};

std::string TagDefinitionJson(std::uint32_t branch, const TagDefinition& tag) {
  Json json = Event("tagdef");
  json["branch"] = branch == kBranchDa ? "da" : "hda";
  json["id"] = tag.id;
  json["name"] = tag.name;
  json["data_type"] = DataTypeText(tag.DataType());
  if (branch != kBranchDa) return Dump(json);
  json["description"] = tag.description;
  for (std::size_t i = 0; i < tag.descriptor.size(); ++i) json["descriptor"][kDescriptorNames[i]] = tag.descriptor[i];
  return Dump(json);
}

}  // namespace ostrel::host
