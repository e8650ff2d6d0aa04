#include "station/passing/Publisher.h"

#include <fmt/format.h>

#include <chrono>

#include "host/session/Failure.h"

namespace ostrel::station {
namespace {

using namespace std::chrono_literals;

constexpr auto kLook = 250ms;
/// Handed over and not acknowledged; what is more waits in the archive.
constexpr std::size_t kMostFlying = 500;
constexpr const char* kSetLevel = "/set";

Message StationStatus(const Messages& messages, const char* status) {
  return {.topic = messages.Root() + "/status", .payload = status, .retained = true};
}

}  // namespace

Publisher::Publisher(StationParts& parts, const MqttSettings& settings, WriteSink writes)
    : parts_(parts),
      settings_(settings),
      messages_(settings, parts.settings.station),
      writes_(std::move(writes)),
      broker_(std::make_shared<Broker>(
          settings, "ostrel-" + parts.settings.station, StationStatus(messages_, "offline"),
          BrokerEvents{.connected = [this] { Greet(); },
                       .delivered = [this](int mark) { Acknowledge(mark); },
                       .received = [this](const std::string& topic, const std::string& payload) { Receive(topic, payload); },
                       .journal = [this](const std::string& line) { parts_.journal("mqtt", line); }})) {
  broker_->Start();
  thread_ = std::thread(&Publisher::Loop, this);
}

Publisher::~Publisher() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  thread_.join();
  broker_->Stop();
}

void Publisher::Forward(Archive& archive, const OutValue& value) const {
  const Message message = messages_.Of(value);
  archive.Post(parts_.settings.station, message.topic, message.payload);
}

// On the library's thread: the rest is the loop's.
void Publisher::Greet() {
  if (settings_.writes) broker_->Subscribe(messages_.Root() + "/+/+" + kSetLevel);
  const std::lock_guard lock(mutex_);
  greet_ = true;
  changed_.notify_all();
}

void Publisher::Acknowledge(int mark) {
  const std::lock_guard lock(mutex_);
  const auto found = flying_.find(mark);
  if (found == flying_.end()) {
    early_[mark] = 1;
    return;
  }
  parts_.writer.Add(
      [station = parts_.settings.station, number = found->second](Archive& archive) { archive.Delivered(station, number); });
  flying_.erase(found);
  changed_.notify_all();
}

void Publisher::Loop() {
  for (;;) {
    {
      std::unique_lock lock(mutex_);
      changed_.wait_for(lock, kLook, [this] { return ending_; });
      if (ending_) return;
    }
    if (!broker_->Connected()) continue;
    SendStatus();
    try {
      SendWaiting();
    } catch (const DatabaseError&) {
      // The archive is away; what waits in it goes out when it is back.
    }
  }
}

void Publisher::SendWaiting() {
  std::size_t free = 0;
  {
    const std::lock_guard lock(mutex_);
    early_.clear();
    free = kMostFlying - std::min(kMostFlying, flying_.size());
  }
  if (free == 0) return;
  std::vector<OutboxRow> rows;
  {
    Readers::Lease archive(parts_.readers);
    rows = archive->Waiting(parts_.settings.station, handedOver_, static_cast<std::int64_t>(free));
  }
  for (const OutboxRow& row : rows) {
    const int mark = broker_->Publish(
        {.topic = row.topic, .payload = Numbered(row.payload, row.number), .retained = messages_.Retained(row.topic)});
    if (mark == 0) return;
    handedOver_ = row.number;
    bool acknowledged = false;
    {
      const std::lock_guard lock(mutex_);
      flying_[mark] = row.number;
      acknowledged = early_.erase(mark) != 0;
    }
    if (acknowledged) Acknowledge(mark);
  }
}

void Publisher::SendStatus() {
  bool greet = false;
  {
    const std::lock_guard lock(mutex_);
    std::swap(greet, greet_);
  }
  if (greet) {
    (void)broker_->Publish(StationStatus(messages_, "online"));
    statusTold_.clear();
  }
  for (const LiveMeter& meter : parts_.live.Summaries()) {
    const auto told = statusTold_.find(meter.name);
    if (told != statusTold_.end() && told->second == meter.linked) continue;
    const bool first = told == statusTold_.end();
    statusTold_[meter.name] = meter.linked;
    (void)broker_->Publish(messages_.MeterStatus(meter.name, meter.linked));
    if (!first || !settings_.homeAssistant) continue;
    const std::optional<LiveMeter> whole = parts_.live.Meter(meter.name);
    if (!whole) continue;
    for (const LiveTag& tag : whole->tags) (void)broker_->Publish(messages_.Discovery(*whole, tag));
  }
}

void Publisher::Receive(const std::string& topic, const std::string& payload) {
  const std::string answer = topic + "/answer";
  std::string id;
  try {
    id = ParseWriteRequest(payload).id;
    Order(topic, payload);
  } catch (const host::Failure& failure) {
    (void)broker_->Publish({.topic = answer, .payload = WriteRefusal(id, failure.what()), .retained = false});
  }
}

// Meter and tag are known by the levels that their names make.
void Publisher::Order(const std::string& topic, const std::string& payload) {
  const WriteRequest request = ParseWriteRequest(payload);
  for (const std::string& name : parts_.live.MeterNames()) {
    const std::string prefix = messages_.MeterTopic(name) + "/";
    if (!topic.starts_with(prefix)) continue;
    const std::optional<LiveMeter> meter = parts_.live.Meter(name);
    for (const LiveTag& tag : meter ? meter->tags : std::vector<LiveTag>()) {
      if (topic != prefix + TopicLevel(tag.name) + kSetLevel) continue;
      writes_({.meter = name,
               .tag = std::to_string(tag.id),
               .value = request.value,
               .source = "mqtt",
               .done = [broker = std::weak_ptr(broker_), answer = topic + "/answer",
                        id = request.id](const host::WriteReport& report) {
                 if (const auto there = broker.lock())
                   (void)there->Publish({.topic = answer, .payload = WriteAnswer(id, report), .retained = false});
               }});
      return;
    }
  }
  throw host::Failure(host::kExitUsage, "there is no such meter or tag");
}

}  // namespace ostrel::station
