// A connection to an MQTT broker, kept up by a thread of the library's: it comes back by itself, and what was handed over
// before is sent again until the broker has taken it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "station/passing/Messages.h"
#include "station/settings/Settings.h"

struct mosquitto;

namespace ostrel::station {

struct BrokerEvents {
  std::function<void()> connected;                                                     // also after each return
  std::function<void(int mark)> delivered;                                             // the broker has taken it
  std::function<void(const std::string& topic, const std::string& payload)> received;  // never what was retained
  std::function<void(const std::string& line)> journal;
};

class Broker {
 public:
  /// The will is what the broker says of us when we are gone without a word.
  Broker(const MqttSettings& settings, const std::string& client, const Message& will, BrokerEvents events);
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  void Start();
  /// Says the will itself, then ends.
  void Stop();
  [[nodiscard]] bool Connected() const { return connected_; }

  /// At least once. Gives the mark that `delivered` will be called with; 0 when it was not taken over.
  int Publish(const Message& message);
  void Subscribe(const std::string& topic);

 private:
  void Secure(const MqttSettings& settings);
  void OnConnect(int result);
  void OnDisconnect(int reason);

  BrokerEvents events_;
  MqttSettings settings_;
  Message will_;
  mosquitto* client_ = nullptr;
  std::atomic<bool> connected_{false};
  std::atomic<bool> told_{false};  // that it is away
  bool running_ = false;
};

}  // namespace ostrel::station
