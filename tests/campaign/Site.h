// One channel of the campaign: a host with its plug-in object, the port that the host's programs use, a line of simulated
// meters; and whoever looks at each step whether what must hold does.
#pragma once

#include <cmath>
#include <set>

#include "Protocol/diagnostics/CLogFile.h"
#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/object/CProtocol.h"
#include "host/server/ObjectProvider.h"
#include "tests/campaign/Line.h"
#include "tests/campaign/Scheduler.h"

namespace ostrel::campaign {

struct Site;

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

 private:
  [[nodiscard]] bool OnPollThread() const { return ThreadId == scheduler->Self(); }
  Site& site_;
};

/// A tag as the watchers know it; they hear of its end. What it adds needs no end of its own.
struct WatchedTag final : CDeviceTag {
  WatchedTag(Site& watcher, std::size_t ofMeter, std::uint32_t number);
  void Destroy(std::uint32_t flags) override;
  void UseFrom(bool used);

  Site& site;
  std::size_t meter;  // of the plan
  const TagKind kind;
  std::uint64_t shownAt;  // what it showed when it was looked at last
  std::uint16_t shownQuality;
  std::int64_t decodedAt = -1;
  std::int64_t usedSince = -1;  // -1: no client
  // A client's write.
  bool writing = false;
  double written = 0;
  std::uint32_t sent = 0;  // passes of its command since
};

struct Site {
  Site(const Scenario& of, std::uint32_t channel);
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;

  /// The host's whole life: settings, meters, start, what it does meanwhile, the calm after it, and the end.
  void Run();

  // --- the host (SiteOperations.cpp)
  void Configure();
  void AddMeter(std::size_t meter);
  void RemoveMeter(std::size_t meter);
  void Start();
  void Restart(bool anew);
  void LeaveWrite(WatchedTag& tag, double value);
  void Write(const Operation& operation, bool exchange);
  void InBackground(const Operation& operation, void (Site::*ask)(const Operation&, std::uint32_t device));
  void CalmDown();
  [[nodiscard]] std::string WhyNotWell() const;
  void Bounded(const char* name, std::int64_t boundMs, const std::function<std::uint32_t()>& call) const;
  [[nodiscard]] std::int64_t LongestExchangeMs() const;
  [[nodiscard]] std::optional<std::uint32_t> DeviceOf(std::size_t meter) const;
  [[nodiscard]] WatchedTag* AnyTag(std::size_t meter, std::uint64_t salt) const;

  // --- history (SiteHistory.cpp)
  void ListProfile(const Operation& operation, std::uint32_t device);
  void ReadArchive(const Operation& operation, std::uint32_t device);
  void AskTimes(const Operation& operation, std::uint32_t device);
  void CheckPower(std::size_t meter, std::uint32_t tag, sim::MeterTime shown, float value);
  void CheckComplete(std::size_t meter, std::uint32_t tag, sim::Period asked, const TimestampList& list);

  // --- the watchers (SiteWatch.cpp)
  void PassBegins(std::int64_t wanted);
  void PassEnds();
  void CommandPasses(std::span<const std::uint8_t> request);
  void TagEnds(CDeviceTag* tag);
  void TagsMayHaveChanged();
  void Look(WatchedTag& tag);
  void CheckValue(const WatchedTag& tag);
  void WriteEnds(WatchedTag& tag);
  void CheckFresh() const;
  void CheckRestorations();
  void CheckShare() const;
  void LogLine(std::string_view line);
  void HostIsCalled(const char* what) const;
  [[nodiscard]] std::uint32_t AddressOf(const WatchedTag& tag) const { return plan.meters[tag.meter].spec.address; }

  struct Device {
    std::size_t meter;  // of the plan
    bool lost = false;
    std::uint32_t restored = 0;  // lines in the log since the last pass
  };

  const Scenario& scenario;
  const std::uint32_t number;
  const ChannelPlan& plan;
  Line line;
  CLogFile log;
  DebugTrace trace;
  std::shared_ptr<host::PortDirectory> directory = std::make_shared<host::PortDirectory>();
  host::ObjectProvider provider{directory};
  HostContext context;
  WatchedProtocol* protocol = new WatchedProtocol(*this);
  std::vector<Device> devices;
  std::uint32_t tableChanges = 0;
  std::vector<WatchedTag*> tags;  // of the meters that the host has
  std::set<CDeviceTag*> alive;    // the plug-in destroys those of removed meters when it likes
  std::vector<Fibre*> historyThreads;
  std::set<std::size_t> laidOutAnew;  // meters whose profile was being listed when its period changed
  struct Pass {
    std::uint32_t thread = 0;
    std::int64_t wanted = 0, began = 0, awake = 0, spent = 0;
    std::uint32_t exchanges = 0;
    bool whole = false;
    std::uint32_t retries = 0;
    std::set<std::uint8_t> polled;  // addresses asked by the poll thread
  } pass;
  std::uint8_t lastPolled = 0;
  std::uint8_t wantedCode = 0;  // of the request that was to be sent last
  std::string lastLine;
  std::uint32_t drillsSeen = 0;
  std::set<Bytes> confirmed;  // commands that got a clean "done", until the next client writes
};

inline bool Near(double expected, double shown) { return std::fabs(expected - shown) <= std::fabs(expected) * 1e-6 + 1e-9; }

}  // namespace ostrel::campaign
