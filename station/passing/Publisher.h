// Store and forward: hands the broker what the outbox of the archive holds, in its order, and takes out what the broker has
// acknowledged. What was not acknowledged before a crash is handed over again: at least once.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "station/archive/Readers.h"
#include "station/archive/Writer.h"
#include "station/passing/Broker.h"

namespace ostrel::station {

/// Throws host::Failure when it cannot be begun.
using WriteSink = std::function<void(const WriteOrder& order)>;

class Publisher {
 public:
  Publisher(StationParts& parts, const MqttSettings& settings, WriteSink writes);
  ~Publisher();

  /// Called inside a write job.
  void Forward(Archive& archive, const OutValue& value) const;
  [[nodiscard]] bool Connected() const { return broker_->Connected(); }

 private:
  void Loop();
  void SendWaiting();
  void SendStatus();
  void Greet();
  void Receive(const std::string& topic, const std::string& payload);
  void Order(const std::string& topic, const std::string& payload);
  void Acknowledge(int mark);

  StationParts& parts_;
  MqttSettings settings_;
  Messages messages_;
  WriteSink writes_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool ending_ = false;
  bool greet_ = false;
  std::int64_t handedOver_ = 0;             // number of the last one
  std::map<int, std::int64_t> flying_;      // marks and numbers
  std::map<int, int> early_;                // acknowledged before their mark was noted
  std::map<std::string, bool> statusTold_;  // the thread's own
  std::shared_ptr<Broker> broker_;          // writes that are answered later hold on to it
  std::thread thread_;
};

}  // namespace ostrel::station
