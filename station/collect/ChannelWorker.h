// One channel at work: polls its meters, keeps what changed, carries out writes, and fills the gaps of the archive beside it.
//
// Two threads: the session's own watcher handles passes, the other one fills. A meter is known by its serial number, which is
// polled with everything else; values count for the meter whose number was read in the same pass, and what was read of an
// archive is kept only when two passes later the same number still stands there. The plug-in remembers profile records by
// address, so a meter exchanged for another asks for a new session.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/session/ClientWrite.h"
#include "host/session/Session.h"
#include "station/archive/Readers.h"
#include "station/archive/Writer.h"
#include "station/collect/LiveState.h"
#include "station/collect/MeterFill.h"
#include "station/settings/Settings.h"

namespace ostrel::station {

/// One value on its way out, current (`record` empty) or of an archive.
struct OutValue {
  const std::string& meter;
  std::int64_t tag;
  const std::string& name;
  const std::string& unit;
  const CurrentValue* current;
  const StoredRecord* record;
};

/// What all channels share. It outlives them.
struct StationParts {
  const host::Plugin& plugin;
  const ArchiveSettings& settings;
  std::string logFolder;  // event logs of the channels
  Writer& writer;
  Readers& readers;
  LiveState& live;
  std::function<void(const std::string& channel, const std::string& line)> journal;
  std::function<void(Archive&, const OutValue&)> forward;  // called inside a write job; may be empty
};

struct WriteOrder {
  std::string meter;
  std::string tag;
  std::string value;
  std::string source;  // who asked
  std::function<void(const host::WriteReport&)> done;
};

class ChannelWorker {
 public:
  /// Throws host::Failure (usage).
  ChannelWorker(StationParts& parts, const host::Config& lines, const host::ChannelConfig& channel);
  ~ChannelWorker();

  void Start();
  void SignalStop();
  /// Whether polling goes on: something happened lately.
  [[nodiscard]] bool Alive() const;
  /// A meter was exchanged for another.
  [[nodiscard]] bool WantsRestart() const { return wantsRestart_; }
  [[nodiscard]] const host::ChannelConfig& Config() const { return config_; }
  /// Throws host::Failure (usage) when there is no such tag or the value is none of it.
  void Write(const WriteOrder& order);

 private:
  struct Slot {
    host::Meter* meter = nullptr;
    std::size_t serialTag = 0;
    std::vector<std::string> units;
    std::vector<std::int64_t> keptMs;  // when each selected tag was kept last
    std::string serial;
    bool exchanged = false;              // nothing more is kept before the channel begins anew
    std::atomic<bool> confirmed{false};  // the number was read in the last pass
    std::atomic<std::uint32_t> confirmations{0};
    std::atomic<bool> checkDue{true};
    const std::shared_ptr<std::atomic<MeterKey>> key = std::make_shared<std::atomic<MeterKey>>(0);
    std::int64_t linkKeptAt = 0;
    LinkRow linkBefore;
    std::unique_ptr<MeterFill> fill;
    bool filled = false;                 // nothing is missing before the next look
    std::optional<double> completeness;  // when it was filled last
    std::int64_t countedAt = 0;
  };
  struct Pending {
    std::size_t slot;
    std::uint32_t confirmations;
    FillResult result;
  };

  void AddSlot(host::Meter& meter);
  [[nodiscard]] std::vector<host::HistoryTag> HistoryTags(const host::Meter& meter);
  void HandlePass(const host::PassReport& report);
  void HandleMeter(Slot& slot, const host::MeterReadings& readings);
  void Identify(Slot& slot, const std::string& serial);
  void KeepValues(Slot& slot, const host::MeterReadings& readings, const std::vector<std::size_t>& changed);
  void KeepLink(Slot& slot, const MeterFigures& figures);
  void KeepEvents();
  void AfterPassWrites();
  void FinishWrite(const host::WriteReport& report);

  void FillLoop();
  [[nodiscard]] bool FillOnce();
  void BeginChecks();
  [[nodiscard]] std::optional<std::pair<std::size_t, Portion>> MostUrgent();
  void KeepConfirmed();
  void ShowFill(Slot& slot, Archive& archive, const Portion* portion);
  [[nodiscard]] std::int64_t MeterNow(const Slot& slot) const;
  bool Pause(double seconds);

  StationParts& parts_;
  host::ChannelConfig config_;
  std::shared_ptr<LineFigures> figures_ = std::make_shared<LineFigures>();
  std::unique_ptr<host::Session> session_;
  host::Channel& channel_;
  std::vector<std::unique_ptr<Slot>> slots_;
  std::atomic<std::uint32_t> lastPassAt_{0};
  std::atomic<bool> wantsRestart_{false};

  std::mutex writeMutex_;
  std::deque<WriteOrder> orders_;
  std::optional<host::ClientWrite> write_;
  std::int64_t writeBegan_ = 0;

  std::mutex stopMutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
  std::deque<Pending> pending_;  // the filling thread's own
  std::int64_t checkedAt_ = 0;
  double secondsPerRecord_ = 0;
  std::thread filler_;
};

}  // namespace ostrel::station
