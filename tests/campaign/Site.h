// One channel of the campaign: a host with its plug-in object, the port that the host's programs use, a line of simulated
// meters; and whoever looks at each step whether what must hold does.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Protocol/diagnostics/CLogFile.h"
#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/object/CProtocol.h"
#include "host/server/ObjectProvider.h"
#include "tests/campaign/Line.h"
#include "tests/campaign/Scheduler.h"

namespace ostrel::campaign {

class Site;

/// The plug-in's object, with an eye on its passes and its commands.
class WatchedProtocol final : public CProtocol {
 public:
  explicit WatchedProtocol(Site& site) : site_(site) {}
  std::uint32_t STDMETHODCALLTYPE LockPoll() override;
  std::uint32_t STDMETHODCALLTYPE UnlockPoll() override;
  std::uint32_t STDMETHODCALLTYPE UnlockExchange() override;
  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                     std::uint8_t* answer, std::uint32_t* count, std::uint32_t offset) override;
  void STDMETHODCALLTYPE RemoveDevice(std::int32_t index) override;
  [[nodiscard]] bool OnPollThread() const { return ThreadId == platform::CurrentThreadId(); }

 private:
  Site& site_;
};

/// A tag as the watchers know it.
struct WatchedTag {
  CDeviceTag* tag = nullptr;
  std::size_t meter = 0;  // of the plan
  std::uint32_t number = 0;
  FILETIME timestamp{};
  std::uint16_t quality = 0;
  std::int64_t decodedAt = -1;
  std::int64_t usedSince = -1;  // -1: no client
  // A client's write.
  bool writing = false;
  double written = 0;
  std::uint32_t sent = 0;  // passes of its command since
  bool confirmed = false;
};

class Site {
 public:
  Site(const Scenario& scenario, std::uint32_t channel, VirtualTime& time);
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;
  ~Site();

  /// The host's whole life: settings, meters, start, what it does meanwhile, the calm after it, and the end.
  void Run();
  [[nodiscard]] const Line& Wire() const { return line_; }

  // --- told by the plug-in's object
  void PassBegins();
  void PassEnds();
  void CommandPasses(std::span<const std::uint8_t> request);
  void TagEnds(CDeviceTag* tag);

 private:
  struct Device {
    std::size_t meter;  // of the plan
    bool lost = false;
    std::uint32_t restored = 0;  // lines in the log since the last pass
  };

  // --- the host (SiteOperations.cpp)
  void Configure();
  void AddMeter(std::size_t meter);
  void AddTags(std::size_t meter);
  void RemoveMeter(std::size_t meter);
  void Do(const Operation& operation);
  void Write(const Operation& operation);
  void LeaveWrite(WatchedTag& tag, double value);
  void Restart();
  void Start();
  void CalmDown();
  [[nodiscard]] std::optional<std::uint32_t> DeviceOf(std::size_t meter) const;
  [[nodiscard]] WatchedTag* AnyTag(std::size_t meter, std::uint64_t salt);
  template <class Call>
  auto Bounded(const char* name, std::int64_t boundMs, Call call);

  // --- history (SiteHistory.cpp)
  void AskHistory(const Operation& operation);
  void ListProfile(const Operation& operation, std::uint32_t device);
  void ReadArchive(const Operation& operation, std::uint32_t device);
  void AskTimes(const Operation& operation, std::uint32_t device);
  [[nodiscard]] Moment MomentOf(std::size_t meter) const;
  void CheckPower(std::size_t meter, std::uint32_t tag, const FILETIME& time, const HistoryValue& value);
  void CheckComplete(std::size_t meter, std::uint32_t tag, sim::Period asked, const TimestampList& list);

  // --- the watchers (SiteWatch.cpp)
  void TagsMayHaveChanged();
  void Look(WatchedTag& tag);
  void CheckValue(const WatchedTag& tag);
  void WriteEnds(WatchedTag& tag);
  void CheckFresh();
  void CheckRestorations();
  void CheckShare();
  void LogLine(std::string_view line);
  void HostIsCalled(const char* what);
  [[nodiscard]] std::string WhyNotWell() const;
  [[nodiscard]] std::int64_t LongestExchangeMs() const;

  const Scenario& scenario_;
  const ChannelPlan& plan_;
  std::uint32_t number_;
  VirtualTime& time_;
  Line line_;
  CLogFile log_;
  DebugTrace trace_;
  std::shared_ptr<host::PortDirectory> directory_ = std::make_shared<host::PortDirectory>();
  host::ObjectProvider provider_{directory_};
  HostContext context_;
  WatchedProtocol* protocol_;
  std::vector<Device> devices_;
  std::uint32_t tableChanges_ = 0;
  std::vector<std::unique_ptr<WatchedTag>> tags_;
  std::map<CDeviceTag*, int> ended_;
  std::vector<Fibre*> historyThreads_;
  std::int64_t passBegan_ = 0;
  std::int64_t awakeBegan_ = 0;
  std::int64_t lineBegan_ = 0;
  std::uint32_t passThread_ = 0;
  bool wholePass_ = false;
  std::uint8_t lastPolled_ = 0;
  std::set<std::uint8_t> polled_;  // addresses asked in this pass by the poll thread
  std::string lastLine_;
  bool logFailed_ = false;  // from here on the log is not whole
  std::set<Bytes> confirmed_;  // commands that got a clean "done", until the next client writes
};

}  // namespace ostrel::campaign
