// A polling session: the plug-in, its channels, and one thread per channel that reports each pass.
#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/server/HostServices.h"
#include "host/session/Channel.h"
#include "host/session/Config.h"
#include "host/session/EventLog.h"
#include "host/session/Plugin.h"

namespace ostrel::host {

/// Called for one pass at a time, without any lock of the plug-in. True ends the channel's polling.
using PassHandler = std::function<bool(Channel& channel, const PassReport& report)>;

struct MeterPlace {
  Channel* channel = nullptr;
  Meter* meter = nullptr;
};

class Session {
 public:
  /// Whether meters' clocks are corrected as configured: a command that only looks leaves them alone.
  enum class Clocks { Keep, LeaveAlone };

  Session(const Plugin& plugin, const Config& config, Clocks clocks);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Polls every channel; after `passes` of them (0: no limit) a channel stops by itself. `done` is called when all have.
  void Start(PassHandler handler, std::uint32_t passes, std::function<void()> done = {});
  /// Throws what a handler threw; its channel has ended with it.
  void Stop();
  /// All channels have done their passes.
  [[nodiscard]] bool Done() const { return running_ == 0; }
  /// Waits until then; false when the person at the terminal wants to end.
  [[nodiscard]] bool WaitUntilDone() const;

  /// Runs `work` while no pass is being handled.
  void Exclusively(const std::function<void()>& work);

  [[nodiscard]] std::vector<std::unique_ptr<Channel>>& Channels() { return channels_; }
  [[nodiscard]] EventLog& Events() { return events_; }
  [[nodiscard]] HostServices& Services() { return services_; }
  /// Throws Failure (usage) with near names.
  [[nodiscard]] MeterPlace FindMeter(const std::string& name);

 private:
  void Watch(Channel& channel, std::uint32_t passes);
  void WatchPasses(Channel& channel, std::uint32_t passes);
  void EndThreads();

  EventLog events_;
  HostServices services_;
  std::vector<std::unique_ptr<Channel>> channels_;
  PassHandler handler_;
  std::function<void()> done_;
  std::mutex handling_;
  std::exception_ptr failure_;  // the first of a handler, under handling_
  std::vector<std::thread> watchers_;
  std::atomic<bool> stopping_{false};
  std::atomic<std::size_t> running_{0};
};

/// The configuration with one meter of it, for commands that need no more; a meter of that name must be there.
[[nodiscard]] Config OnlyMeter(const Config& config, const std::string& meter);

}  // namespace ostrel::host
