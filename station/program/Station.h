// The station as a whole: the archive, a worker for each channel, the ways out. A new configuration restarts what it changes
// and leaves the rest polling.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "station/collect/ChannelWorker.h"
#include "station/passing/Publisher.h"
#include "station/settings/Settings.h"
#include "station/web/WebServer.h"

namespace ostrel::station {

class Station {
 public:
  Station(const host::Plugin& plugin, const StationSettings& settings, const std::string& stateFolder);
  ~Station();

  /// Throws host::Failure, with nothing changed, when the settings cannot be used.
  void Apply(const StationSettings& settings);
  /// To be called about every second: channels that ask for it begin anew, what is too old is forgotten.
  void Tick();
  /// Every channel goes on.
  [[nodiscard]] bool Alive();
  /// Asks everything to end, and waits for it.
  void SignalStop();
  void StopAll();
  /// Waits until what was read is kept.
  bool Flush(std::uint32_t milliseconds) { return writer_.Flush(milliseconds); }

 private:
  using Worker = std::unique_ptr<ChannelWorker>;

  void CheckUsable(const StationSettings& settings) const;
  void ApplyChannels(const StationSettings& settings);
  void ApplyMqtt(const StationSettings& settings);
  void ApplyWeb(const StationSettings& settings);
  void Write(const WriteOrder& order);
  void Forward(Archive& archive, const OutValue& value);
  void Forget();

  const host::Plugin& plugin_;
  StationSettings settings_;
  Writer writer_;
  Readers readers_;
  LiveState live_;
  StationParts parts_;
  std::mutex mutex_;  // of what follows; no worker is waited for while it is held
  std::map<std::string, std::shared_ptr<ChannelWorker>> workers_;
  std::shared_ptr<Publisher> publisher_;
  std::unique_ptr<WebServer> web_;
  std::int64_t forgotAt_ = 0;
};

}  // namespace ostrel::station
