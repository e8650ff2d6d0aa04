#include "station/web/Api.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <algorithm>

#include "host/session/Failure.h"
#include "host/session/HistoryInterval.h"
#include "platform/clock.h"
#include "station/collect/Completeness.h"

namespace ostrel::station {
namespace {

constexpr std::int64_t kDay = 86400;
/// A question may span so many days, so that no page can ask for the whole archive.
constexpr std::int64_t kMostDays = 400;
constexpr std::int64_t kMostEvents = 500;

host::Failure Wrong(const std::string& what) { return {host::kExitUsage, what}; }

std::int64_t TimeOf(const Asked& asked, const char* key, std::int64_t otherwise) {
  const std::string text = asked(key);
  return text.empty() ? otherwise : host::ParseWallTime(key, text);
}

Span SpanOf(const Asked& asked, std::int64_t usualDays) {
  const std::int64_t tomorrow = host::ComputersWallTime() / kDay * kDay + kDay;
  Span span{.from = 0, .to = TimeOf(asked, "to", tomorrow)};
  span.from = TimeOf(asked, "from", span.to - usualDays * kDay);
  if (span.from > span.to || span.to - span.from > kMostDays * kDay)
    throw Wrong(fmt::format("asks for more than {} days", kMostDays));
  return span;
}

std::int64_t NumberOf(const Asked& asked, const char* key) {
  const std::string text = asked(key);
  const bool digits = !text.empty() && text.size() < 10 &&
                      std::all_of(text.begin(), text.end(), [](unsigned char letter) { return std::isdigit(letter) != 0; });
  if (!digits) throw Wrong(fmt::format("{} must be a number", key));
  return std::stoll(text);
}

LiveMeter AskedMeter(WebParts& parts, const Asked& asked) {
  std::optional<LiveMeter> meter = parts.live.Meter(asked("meter"));
  if (!meter) throw Wrong("there is no meter \"" + asked("meter") + "\"");
  return *std::move(meter);
}

/// The device that stands there now.
MeterRow AskedRow(WebParts& parts, Archive& archive, const Asked& asked) {
  const LiveMeter meter = AskedMeter(parts, asked);
  std::optional<MeterRow> row = archive.MeterAt({.station = parts.station, .channel = meter.channel, .name = meter.name});
  if (!row) throw Wrong("nothing is kept of \"" + meter.name + "\" yet");
  return *std::move(row);
}

Json Summary(const LiveMeter& meter) {
  Json json;
  json["meter"] = meter.name;
  json["channel"] = meter.channel;
  json["address"] = meter.address;
  json["type"] = meter.type;
  json["serial"] = meter.serial;
  json["linked"] = meter.linked;
  json["completeness"] = meter.fill.completeness ? Json(*meter.fill.completeness) : Json(nullptr);
  json["fill"] = {{"missing", meter.fill.missing}, {"seconds", meter.fill.secondsLeft}, {"doing", meter.fill.doing}};
  json["requests"] = meter.figures.requests;
  json["answers"] = meter.figures.answers;
  json["silent"] = meter.figures.silent;
  json["spoiled"] = meter.figures.spoiled;
  json["clock_offset_s"] = meter.figures.clockOffsetSeconds ? Json(*meter.figures.clockOffsetSeconds) : Json(nullptr);
  return json;
}

Json MetersAnswer(WebParts& parts, const Asked&) {
  Json meters = Json::array();
  for (const LiveMeter& meter : parts.live.Summaries()) meters.push_back(Summary(meter));
  Json channels = Json::array();
  for (const LiveChannel& channel : parts.live.Channels()) {
    channels.push_back({{"channel", channel.port},
                        {"problem", channel.problem},
                        {"passes", channel.passes},
                        {"pass_s", channel.passSeconds},
                        {"period_s", channel.periodSeconds}});
  }
  return {{"station", parts.station}, {"meters", meters}, {"channels", channels}};
}

Json ValuesAnswer(WebParts& parts, const Asked& asked) {
  Json values = Json::array();
  for (const LiveTag& tag : AskedMeter(parts, asked).tags) values.push_back(TagJson(tag));
  return {{"meter", asked("meter")}, {"values", values}};
}

Json TagsAnswer(WebParts& parts, const Asked& asked) {
  Readers::Lease archive(parts.readers);
  const MeterRow meter = AskedRow(parts, *archive, asked);
  Json tags = Json::array();
  for (const std::int64_t tag : RecordTags(*archive, meter.key)) {
    const TagName name = NameOf(*archive, meter.key, tag);
    tags.push_back({{"id", tag}, {"tag", name.name}, {"unit", name.unit}});
  }
  return {{"meter", asked("meter")}, {"tags", tags}};
}

Json RecordsAnswer(WebParts& parts, const Asked& asked) {
  const std::int64_t tag = NumberOf(asked, "tag");
  const Span span = SpanOf(asked, 1);
  Readers::Lease archive(parts.readers);
  const MeterRow meter = AskedRow(parts, *archive, asked);
  const TagName name = NameOf(*archive, meter.key, tag);
  Json records = Json::array();
  for (const StoredRecord& record : archive->Records(meter.key, tag, span.from, span.to)) {
    records.push_back(
        {{"time", WallText(record.time)}, {"value", NumberOrNull(record.value)}, {"quality", RecordStateText(record.state)}});
  }
  return {{"meter", asked("meter")}, {"tag", name.name}, {"unit", name.unit}, {"records", records}};
}

Json CompletenessAnswer(WebParts& parts, const Asked& asked) {
  const Span span = SpanOf(asked, 31);
  Readers::Lease archive(parts.readers);
  const MeterRow meter = AskedRow(parts, *archive, asked);
  Json days = Json::array();
  for (const DayCount& day : CountDays(*archive, meter, span)) {
    days.push_back({{"tag", day.tag},
                    {"day", WallText(day.day).substr(0, 10)},
                    {"expected", day.expected},
                    {"stored", day.stored},
                    {"bad", day.bad},
                    {"lost", day.lost},
                    {"missing", day.Missing()}});
  }
  return {{"meter", asked("meter")}, {"days", days}};
}

Json EventsAnswer(WebParts& parts, const Asked&) {
  Readers::Lease archive(parts.readers);
  Json events = Json::array();
  archive->Base().Run(
      "SELECT utc, channel, text FROM event WHERE station = $1 ORDER BY id DESC LIMIT $2", {parts.station, kMostEvents},
      [&](const Row& row) {
        events.push_back({{"time", UtcText(WholeAt(row, 0) * 1000)}, {"channel", TextAt(row, 1)}, {"text", TextAt(row, 2)}});
      });
  return {{"events", events}};
}

Json WritesAnswer(WebParts& parts, const Asked&) {
  Readers::Lease archive(parts.readers);
  Json writes = Json::array();
  archive->Base().Run(
      "SELECT w.utc, m.name, w.tag, w.source, w.sent, w.before, w.after, w.outcome FROM written w JOIN meter m ON m.id = w.meter "
      "WHERE "
      "m.station = $1 ORDER BY w.id DESC LIMIT $2",
      {parts.station, kMostEvents}, [&](const Row& row) {
        writes.push_back({{"time", UtcText(WholeAt(row, 0) * 1000)},
                          {"meter", TextAt(row, 1)},
                          {"tag", WholeAt(row, 2)},
                          {"source", TextAt(row, 3)},
                          {"sent", TextAt(row, 4)},
                          {"before", TextAt(row, 5)},
                          {"after", TextAt(row, 6)},
                          {"outcome", TextAt(row, 7)}});
      });
  return {{"writes", writes}};
}

}  // namespace

const std::vector<ApiRow>& ApiRows() {
  static const std::vector<ApiRow> rows = {
      {"/api/meters", "channels, meters and their state", MetersAnswer},
      {"/api/values", "meter: its values now", ValuesAnswer},
      {"/api/tags", "meter: tags whose records are kept", TagsAnswer},
      {"/api/records", "meter, tag, from, to: records of [from, to)", RecordsAnswer},
      {"/api/completeness", "meter, from, to: counts by tag and day", CompletenessAnswer},
      {"/api/events", "the last lines of the event log", EventsAnswer},
      {"/api/writes", "the last writes", WritesAnswer},
  };
  return rows;
}

Json HealthJson(WebParts& parts) {
  const WriterState writer = parts.writer.State();
  const bool alive = parts.alive();
  Json json;
  json["ok"] = alive && writer.problem.empty();
  json["polling"] = alive;
  json["archive"] = writer.problem.empty() ? "ok" : writer.problem;
  const std::optional<bool> broker = parts.brokerConnected();
  if (broker) json["broker"] = *broker ? "ok" : "away";
  return json;
}

std::optional<std::string> BasicPassword(const std::string& header, const std::string& user) {
  constexpr std::string_view kBasic = "Basic ";
  constexpr std::size_t kMostLetters = 512;
  if (!header.starts_with(kBasic) || header.size() > kMostLetters) return std::nullopt;
  const std::string code = header.substr(kBasic.size());
  std::string text(code.size(), '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(code.data()), static_cast<int>(code.size()));
  if (length < 0) return std::nullopt;
  text.resize(static_cast<std::size_t>(length));
  // What fills the last block up decodes to zeros.
  while (!text.empty() && text.back() == '\0') text.pop_back();
  if (!text.starts_with(user + ":")) return std::nullopt;
  return text.substr(user.size() + 1);
}

}  // namespace ostrel::station
