#include "station/passing/Broker.h"

#include <fmt/format.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <mutex>

#include "host/session/Failure.h"

namespace ostrel::station {
namespace {

constexpr int kAtLeastOnce = 1;
constexpr int kKeepAliveSeconds = 20;
constexpr unsigned kFirstDelaySeconds = 1;
constexpr unsigned kMostDelaySeconds = 30;

void PrepareLibrary() {
  static std::once_flag once;
  std::call_once(once, [] { mosquitto_lib_init(); });
}

Broker& Self(void* object) { return *static_cast<Broker*>(object); }

}  // namespace

// The session is not kept by the broker: a write that was meant for a time when nobody listened must not come later.
Broker::Broker(const MqttSettings& settings, const std::string& client, const Message& will, BrokerEvents events)
    : events_(std::move(events)), settings_(settings), will_(will) {
  PrepareLibrary();
  client_ = mosquitto_new(client.c_str(), true, this);
  mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, settings.version == 5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
  mosquitto_reconnect_delay_set(client_, kFirstDelaySeconds, kMostDelaySeconds, true);
  mosquitto_max_inflight_messages_set(client_, 100);
  mosquitto_will_set(client_, will.topic.c_str(), static_cast<int>(will.payload.size()), will.payload.data(), kAtLeastOnce, true);
  if (!settings.user.empty()) mosquitto_username_pw_set(client_, settings.user.c_str(), settings.password.c_str());
  Secure(settings);
  mosquitto_connect_v5_callback_set(
      client_, [](mosquitto*, void* self, int result, int, const mosquitto_property*) { Self(self).OnConnect(result); });
  mosquitto_disconnect_v5_callback_set(
      client_, [](mosquitto*, void* self, int reason, const mosquitto_property*) { Self(self).OnDisconnect(reason); });
  mosquitto_publish_v5_callback_set(
      client_, [](mosquitto*, void* self, int mark, int, const mosquitto_property*) { Self(self).events_.delivered(mark); });
  mosquitto_message_v5_callback_set(
      client_, [](mosquitto*, void* self, const mosquitto_message* message, const mosquitto_property*) {
        // A retained write would be carried out again at every start.
        if (message->retain) return;
        Self(self).events_.received(message->topic, std::string(static_cast<const char*>(message->payload),
                                                                static_cast<std::size_t>(message->payloadlen)));
      });
}

Broker::~Broker() {
  Stop();
  mosquitto_destroy(client_);
}

void Broker::Secure(const MqttSettings& settings) {
  if (settings.caFile.empty()) return;
  const char* const certificate = settings.certificateFile.empty() ? nullptr : settings.certificateFile.c_str();
  const char* const key = settings.keyFile.empty() ? nullptr : settings.keyFile.c_str();
  const int result = mosquitto_tls_set(client_, settings.caFile.c_str(), nullptr, certificate, key, nullptr);
  if (result != MOSQ_ERR_SUCCESS) {
    throw host::Failure(host::kExitUsage,
                        fmt::format("mqtt.ca_file, certificate_file or key_file: {}", mosquitto_strerror(result)));
  }
}

void Broker::Start() {
  running_ = true;
  mosquitto_connect_async(client_, settings_.host.c_str(), settings_.port, kKeepAliveSeconds);
  mosquitto_loop_start(client_);
}

void Broker::Stop() {
  if (!running_) return;
  running_ = false;
  if (connected_) (void)Publish(will_);
  mosquitto_disconnect(client_);
  mosquitto_loop_stop(client_, !connected_);
}

void Broker::OnConnect(int result) {
  if (result != 0) {
    events_.journal(fmt::format("the broker refuses: {}",
                                settings_.version == 5 ? mosquitto_reason_string(result) : mosquitto_connack_string(result)));
    return;
  }
  connected_ = true;
  told_ = false;
  events_.journal("the broker is there");
  events_.connected();
}

void Broker::OnDisconnect(int reason) {
  connected_ = false;
  if (!told_.exchange(true))
    events_.journal(fmt::format("the broker is away ({}); what comes is kept for it", mosquitto_strerror(reason)));
}

int Broker::Publish(const Message& message) {
  int mark = 0;
  const int result = mosquitto_publish(client_, &mark, message.topic.c_str(), static_cast<int>(message.payload.size()),
                                       message.payload.data(), kAtLeastOnce, message.retained);
  return result == MOSQ_ERR_SUCCESS ? mark : 0;
}

void Broker::Subscribe(const std::string& topic) { mosquitto_subscribe(client_, nullptr, topic.c_str(), kAtLeastOnce); }

}  // namespace ostrel::station
