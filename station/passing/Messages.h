// What goes to a broker: topics and payloads. A tag's topic carries its last value and is retained; an archive's records have
// a topic of their own and are not. The number in a payload is the order in which the station kept what it passes on.
#pragma once

#include <string>

#include "station/archive/Archive.h"
#include "station/collect/ChannelWorker.h"
#include "station/settings/Settings.h"

namespace ostrel::station {

struct Message {
  std::string topic;
  std::string payload;
  bool retained = false;
};

/// "A+ Tariff Sum" as a level of a topic: "A+_Tariff_Sum" with + as "plus"; other letters that topics give a meaning are "_".
[[nodiscard]] std::string TopicLevel(const std::string& name);

class Messages {
 public:
  Messages(const MqttSettings& mqtt, std::string station) : mqtt_(mqtt), station_(std::move(station)) {}

  [[nodiscard]] std::string Root() const { return mqtt_.prefix + "/" + station_; }
  [[nodiscard]] std::string MeterTopic(const std::string& meter) const { return Root() + "/" + TopicLevel(meter); }
  [[nodiscard]] Message Of(const OutValue& value) const;
  [[nodiscard]] Message MeterStatus(const std::string& meter, bool online) const;
  /// What Home Assistant makes a sensor of.
  [[nodiscard]] Message Discovery(const LiveMeter& meter, const LiveTag& tag) const;
  /// Who receives what is in the outbox knows by the topic whether it is retained.
  [[nodiscard]] bool Retained(const std::string& topic) const;

 private:
  MqttSettings mqtt_;
  std::string station_;
};

/// The payload with its number in front.
[[nodiscard]] std::string Numbered(const std::string& payload, std::int64_t number);

/// A write as it comes from a broker or a page: {"value": 5, "id": "any"}; the value as text. Throws host::Failure (usage).
struct WriteRequest {
  std::string value;
  std::string id;
};
[[nodiscard]] WriteRequest ParseWriteRequest(const std::string& payload);
[[nodiscard]] std::string WriteAnswer(const std::string& id, const host::WriteReport& report);
[[nodiscard]] std::string WriteRefusal(const std::string& id, const std::string& reason);

}  // namespace ostrel::station
