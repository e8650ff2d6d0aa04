// One serial channel: a protocol object of the plug-in, its meters, and the rhythm of its passes.
//
// The plug-in gives no word when a pass is over. So behind the meters stands a meter of our own, the pass mark: its exchange is
// off and its one tag is in use by nobody, so it never sends anything, but every pass that comes to its end gives that tag a
// quality. We put a quality there that the plug-in never gives and look whether it still stands, under PollLock, which the
// poll thread holds for its whole walk. Passes are at least 10 ms apart; looked at more often than that, none is missed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/server/HostServices.h"
#include "host/session/Config.h"
#include "host/session/LinkRecorder.h"
#include "host/session/Meter.h"
#include "host/session/Plugin.h"
#include "host/session/WriteFrames.h"

namespace ostrel::host {

struct MeterReadings {
  Meter* meter = nullptr;
  std::vector<std::size_t> tags;     // indices into the meter's tags
  std::vector<TagReading> readings;  // one each
  LinkCounts link;
};

struct PassReport {
  std::uint32_t pass = 0;
  double seconds = 0;
  std::uint32_t periodSeconds = 0;
  std::vector<MeterReadings> meters;
};

/// Between how many ms to look for the end of a pass.
inline constexpr std::uint32_t kPassLookMs = 4;

class Channel {
 public:
  /// Adds the meters with all their tags; those the configuration selects are in use. Throws Failure (usage).
  Channel(const Plugin& plugin, HostServices& services, const ChannelConfig& config);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  void Start();
  /// Waits for the poll thread. Never while this thread holds a lock of the plug-in.
  void Stop();

  /// Whether a pass has ended since the last call; then its number, time and the readings of all selected tags. Given the
  /// report of the pass before, it changes there what has changed.
  [[nodiscard]] bool TakePass(PassReport& report);

  /// Puts a tag in use from the next pass on.
  void SelectTag(Meter& meter, std::size_t tag);

  /// The plug-in's record of a meter, with what it has read of it. The caller holds PollLock.
  [[nodiscard]] const DeviceEntry& Record(const Meter& meter);

  [[nodiscard]] std::vector<Meter>& Meters() { return meters_; }
  [[nodiscard]] const ChannelConfig& Config() const { return config_; }
  [[nodiscard]] IProtocol& Protocol() { return *protocol_; }
  [[nodiscard]] LinkRecorder& Link() { return *link_; }
  [[nodiscard]] WriteFrames& Frames() { return *frames_; }

 private:
  void ApplySettings();
  void AddMeter(const Plugin& plugin, const MeterConfig& config, const std::vector<MeterType>& types);
  void AddPassMark();
  [[nodiscard]] bool PassEnded();
  static void Refresh(Meter& meter, MeterReadings& readings);

  HostServices& services_;
  HostContext& context_;
  ChannelConfig config_;
  std::shared_ptr<WriteFrames> frames_;
  std::shared_ptr<LinkRecorder> link_;
  ComPointer<IProtocol> protocol_;
  std::vector<Meter> meters_;
  CDeviceTag* passMark_ = nullptr;
  std::uint32_t passes_ = 0;
  std::uint32_t lookedAt_ = 0;  // tick count when no pass had ended yet
};

/// Holds PollLock, between two passes.
class [[nodiscard]] PollGuard {
 public:
  explicit PollGuard(IProtocol& protocol) : protocol_(protocol) { protocol_.LockPoll(); }
  ~PollGuard() { protocol_.UnlockPoll(); }
  PollGuard(const PollGuard&) = delete;
  PollGuard& operator=(const PollGuard&) = delete;

 private:
  IProtocol& protocol_;
};

}  // namespace ostrel::host
