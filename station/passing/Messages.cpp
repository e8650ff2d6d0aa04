#include "station/passing/Messages.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/session/Failure.h"
#include "station/passing/Json.h"

namespace ostrel::station {
namespace {

constexpr const char* kHistoryLevel = "/history/";

struct SensorRow {
  const char* unit;
  const char* deviceClass;
  const char* stateClass;
};

constexpr SensorRow kSensors[] = {
    {"kWh", "energy", "total_increasing"},   {"W", "power", "measurement"},        {"var", "reactive_power", "measurement"},
    {"VA", "apparent_power", "measurement"}, {"V", "voltage", "measurement"},      {"A", "current", "measurement"},
    {"Hz", "frequency", "measurement"},      {"°C", "temperature", "measurement"},
};

}  // namespace

std::string TopicLevel(const std::string& name) {
  std::string level;
  for (const char letter : name) {
    if (letter == '+') {
      level += "plus";
    } else {
      level += letter == '/' || letter == '#' || letter == ' ' || letter == '$' ? '_' : letter;
    }
  }
  return level;
}

Message Messages::Of(const OutValue& value) const {
  const std::string meter = MeterTopic(value.meter);
  Json json;
  if (value.record != nullptr) {
    json["value"] = NumberOrNull(value.record->value);
    json["quality"] = RecordStateText(value.record->state);
    json["time"] = WallText(value.record->time);
    json["unit"] = value.unit;
    return {.topic = meter + kHistoryLevel + TopicLevel(value.name), .payload = Dumped(json), .retained = false};
  }
  json["value"] = CurrentJson(*value.current);
  json["quality"] = value.current->quality;
  json["time"] = UtcText(value.current->utcMs);
  json["unit"] = value.unit;
  return {.topic = meter + "/" + TopicLevel(value.name), .payload = Dumped(json), .retained = true};
}

bool Messages::Retained(const std::string& topic) const { return topic.find(kHistoryLevel) == std::string::npos; }

Message Messages::MeterStatus(const std::string& meter, bool online) const {
  return {.topic = MeterTopic(meter) + "/status", .payload = online ? "online" : "offline", .retained = true};
}

Message Messages::Discovery(const LiveMeter& meter, const LiveTag& tag) const {
  const std::string device = TopicLevel(station_ + "_" + meter.name);
  const std::string id = fmt::format("{}_{}", device, tag.id);
  Json json;
  json["name"] = tag.name;
  json["unique_id"] = id;
  json["object_id"] = id;
  json["state_topic"] = MeterTopic(meter.name) + "/" + TopicLevel(tag.name);
  json["value_template"] = "{{ value_json.value }}";
  Json sources = Json::array();
  for (const std::string& topic : {Root() + "/status", MeterTopic(meter.name) + "/status"}) sources.push_back({{"topic", topic}});
  json["availability"] = sources;
  json["availability_mode"] = "all";
  for (const SensorRow& row : kSensors) {
    if (tag.unit != row.unit) continue;
    json["device_class"] = row.deviceClass;
    json["state_class"] = row.stateClass;
  }
  if (!tag.unit.empty()) json["unit_of_measurement"] = tag.unit;
  json["device"] = {{"identifiers", {device}}, {"name", meter.name}, {"model", meter.type}};
  return {.topic = "homeassistant/sensor/" + id + "/config", .payload = Dumped(json), .retained = true};
}

std::string Numbered(const std::string& payload, std::int64_t number) {
  return fmt::format("{{\"n\":{},{}", number, payload.substr(1));
}

WriteRequest ParseWriteRequest(const std::string& payload) {
  constexpr std::size_t kMostBytes = 1024;
  if (payload.size() > kMostBytes) throw host::Failure(host::kExitUsage, "is longer than a write can be");
  const Json json = Json::parse(payload, nullptr, false);
  if (!json.is_object() || !json.contains("value"))
    throw host::Failure(host::kExitUsage, "must be {\"value\": ..., \"id\": \"...\"}");
  WriteRequest request;
  const Json& value = json["value"];
  if (!value.is_string() && !value.is_number() && !value.is_boolean()) {
    throw host::Failure(host::kExitUsage, "value must be a number, true, false or a text");
  }
  request.value = value.is_string() ? value.get<std::string>() : value.dump();
  if (json.contains("id")) request.id = json["id"].is_string() ? json["id"].get<std::string>() : json["id"].dump();
  return request;
}

std::string WriteAnswer(const std::string& id, const host::WriteReport& report) {
  Json json;
  json["id"] = id;
  json["outcome"] = host::OutcomeText(report.outcome);
  json["before"] = host::ValueText(report.before);
  json["sent"] = host::ValueText(report.sent);
  json["after"] = host::ValueText(report.after);
  json["reason"] = report.reason;
  return Dumped(json);
}

std::string WriteRefusal(const std::string& id, const std::string& reason) {
  Json json;
  json["id"] = id;
  json["outcome"] = "refused";
  json["reason"] = reason;
  return Dumped(json);
}

}  // namespace ostrel::station
