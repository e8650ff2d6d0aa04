// What the host of a channel does.
#include <algorithm>
#include <bit>

#include "Protocol/history/HistoryTime.h"
#include "Protocol/link/PortSettings.h"
#include "Protocol/model/TagCatalogue.h"
#include "host/session/Meter.h"
#include "tests/campaign/Site.h"
#include "tests/campaign/System.h"

namespace ostrel::campaign {
namespace {

/// A value that the meter keeps as it is written.
double WritableValue(std::uint32_t tag, std::uint64_t salt) {
  if (tag == 6 || tag == 7) return static_cast<double>(1 + salt % 200);
  if (tag == 212 || tag == 100 || tag == 185 || tag == kTagExchange) return static_cast<double>(salt % 2);
  if (tag == 213) return static_cast<double>(1 + salt % 25);
  if (tag >= 219 && tag <= 222) return static_cast<double>(1 + salt % 6000);
  return tag == kTagTimeCorrection || tag == kTagTimeSetup ? 1 : static_cast<double>(1 + salt % 100);
}

void UseTag(const Site& site, const Operation& operation, bool used) {
  if (WatchedTag* const tag = site.AnyTag(operation.meter, operation.salt)) tag->UseFrom(used);
}

void AddMeterAgain(Site& site, const Operation& operation) {
  if (site.DeviceOf(operation.meter)) return;
  site.protocol->LockPoll();
  site.AddMeter(operation.meter);
  site.protocol->UnlockPoll();
}

void SignalAndStart(Site& site, const Operation& operation) {
  site.protocol->SignalStop();
  site.pass.thread = 0;
  site.pass.whole = false;
  scheduler->Wait(static_cast<std::int64_t>(operation.salt % 3000));
  site.Start();
}

void RestartSomehow(Site& site, const Operation&) { site.Restart(site.scenario.seed % 2 == 0); }

void FailCall(Site& site, const Operation& operation) {
  callDrill = {.left = static_cast<std::uint32_t>(1 + operation.salt % 3),
               .thread = operation.salt % 2 == 0 ? scheduler->Self() : site.protocol->ThreadId};
}

void FailAllocation(Site& site, const Operation& operation) {
  memoryDrill = {.left = static_cast<std::uint32_t>(1 + operation.salt % 60), .thread = site.protocol->ThreadId};
}

constexpr OperationKind kKinds[] = {
    {"use tag", [](Site& site, const Operation& it) { UseTag(site, it, true); }},
    {"leave tag", [](Site& site, const Operation& it) { UseTag(site, it, false); }},
    {"write", [](Site& site, const Operation& it) { site.Write(it, false); }},
    {"remove meter", [](Site& site, const Operation& it) { site.RemoveMeter(it.meter); }},
    {"add meter", AddMeterAgain},
    {"restart", RestartSomehow},
    {"signal and start", SignalAndStart},
    {"change settings", RestartSomehow},
    {"switch exchange", [](Site& site, const Operation& it) { site.Write(it, true); }},
    {"list profile", [](Site& site, const Operation& it) { site.InBackground(it, &Site::ListProfile); }},
    {"read archive", [](Site& site, const Operation& it) { site.InBackground(it, &Site::ReadArchive); }},
    {"ask times", [](Site& site, const Operation& it) { site.InBackground(it, &Site::AskTimes); }},
    {"wrong clock",
     [](Site&, const Operation& it) { scheduler->wrongByMs = static_cast<std::int64_t>(it.salt % 400'000) - 200'000; }},
    {"suspend", [](Site&, const Operation& it) { scheduler->Suspend(static_cast<std::int64_t>(it.salt % (90 * 60'000))); }},
    {"fail allocation", FailAllocation},
    {"fail call", FailCall},
};

}  // namespace

const std::span<const OperationKind> kOperationKinds = kKinds;

WatchedTag::WatchedTag(Site& watcher, std::size_t ofMeter, std::uint32_t number)
    : site(watcher), meter(ofMeter), kind(KindOf(number)), shownAt(Ticks(Timestamp)), shownQuality(Quality) {
  host::FillTag(*this, number, std::bit_cast<std::array<std::uint32_t, 10>>(TagDescriptors()[number]), site.number + 1,
                site.plan.meters[meter].spec.address);
  UseFrom(number % 7 != 0);
}

void WatchedTag::Destroy(std::uint32_t flags) {
  site.TagEnds(this);
  CDeviceTag::Destroy(flags);
}

void WatchedTag::UseFrom(bool used) {
  if (used == (usedSince >= 0)) return;
  usedSince = used ? scheduler->Elapsed() : -1;
  used ? Use() : Unuse();
}

Site::Site(const Scenario& of, std::uint32_t channel)
    : scenario(of),
      number(channel),
      plan(of.channels[channel]),
      line(of, channel),
      log(fmt::format("events{}", channel).c_str(), 1024, true) {
  protocol->AddRef();
  ReadLog(fmt::format("events{}", channel), [this](std::string_view text) { LogLine(text); });
  line.sending = [this] { HostIsCalled("the port sends"); };
  const auto open = [this](std::string&) -> std::unique_ptr<host::ByteStream> {
    HostIsCalled("the port opens");
    return line.Open() ? std::make_unique<LineStream>(line) : nullptr;
  };
  const host::ChannelConfig& known = plan.known;
  directory->Set(fmt::format("COM{}", channel + 1),
                 {.open = open,
                  .line = {.lateGuardMs = known.lateGuardMs, .echo = known.echo, .pauseMs = known.preSendPauseMs},
                  .observer = {}});
  context.ObjectProvider = &provider;
  context.LogFile = &log;
  context.Trace = &trace;
  scheduler->Watch(&context.TagLock, [this] { TagsMayHaveChanged(); });
}

/// More than any transaction takes, with its openings of the access channel, and the port's patience with noise.
std::int64_t Site::LongestExchangeMs() const {
  const host::ChannelConfig& known = plan.known;
  return 27 * (4LL * known.timeoutMs + 300 * 11'000 / known.baud + host::kNeverQuietMs + known.preSendPauseMs + 300);
}

void Site::Bounded(const char* name, std::int64_t boundMs, const std::function<std::uint32_t()>& call) const {
  const std::int64_t began = scheduler->Awake();
  call();
  const std::int64_t took = scheduler->Awake() - began;
  if (took > boundMs) Violate("no hang", "{} took {} ms, at most {}", name, took, boundMs);
}

void Site::Configure() {
  PortSettings settings{.BaudRate = plan.known.baud,
                        .RetryCount = plan.known.retries,
                        .PollPeriod = plan.known.pollPeriodSeconds,
                        .PortTimeout = plan.known.timeoutMs,
                        .PreSendPause = plan.known.preSendPauseMs,
                        .ParityName = "\xCD\xE5\xF2"};  // "Нет" in code page 1251
  fmt::format_to(settings.PortName, "COM{}", number + 1);
  context.ClockCorrectionDays = plan.clockCorrectionDays;
  Bounded("SetPortSettings", 3 * LongestExchangeMs(), [&] { return protocol->SetPortSettings(&context, &settings); });
}

void Site::AddMeter(std::size_t meter) {
  const DeviceConfig config = host::MakeDeviceConfig(plan.meters[meter].known, plan.meters[meter].type);
  if (protocol->AddDevice(&config) != static_cast<std::int32_t>(devices.size())) return;
  devices.push_back({.meter = meter});
  ++tableChanges;
  for (const std::uint32_t tag : plan.meters[meter].tags) {
    tags.push_back(new WatchedTag(*this, meter, tag));
    alive.insert(tags.back());
    protocol->AddTag(static_cast<std::uint32_t>(devices.size() - 1), tags.back());
  }
}

void Site::RemoveMeter(std::size_t meter) {
  const auto device = DeviceOf(meter);
  if (!device) return;
  protocol->LockPoll();
  protocol->RemoveDevice(static_cast<std::int32_t>(*device));
  devices.erase(devices.begin() + *device);
  ++tableChanges;
  std::erase_if(tags, [meter](const WatchedTag* tag) { return tag->meter == meter; });
  protocol->UnlockPoll();
}

std::optional<std::uint32_t> Site::DeviceOf(std::size_t meter) const {
  const auto found = std::ranges::find(devices, meter, &Device::meter);
  if (found == devices.end()) return std::nullopt;
  return static_cast<std::uint32_t>(found - devices.begin());
}

WatchedTag* Site::AnyTag(std::size_t meter, std::uint64_t salt) const {
  std::vector<WatchedTag*> own;
  std::ranges::copy_if(tags, std::back_inserter(own), [meter](const WatchedTag* tag) { return tag->meter == meter; });
  return own.empty() ? nullptr : own[salt % own.size()];
}

void Site::LeaveWrite(WatchedTag& tag, double value) {
  const platform::CriticalSectionGuard guard(context.TagLock);
  tag.WriteValue = host::ParseWriteValue(fmt::format("{}", value), tag.CanonicalType);
  tag.writing = true;
  tag.written = value;
  tag.sent = 0;
  confirmed.clear();
  StoreFlag(tag.WritePending, 1);
}

void Site::Write(const Operation& operation, bool exchange) {
  for (std::uint64_t i = 0; i < 30; ++i) {
    WatchedTag* const tag = AnyTag(operation.meter, operation.salt % 1000 + i);
    if (tag == nullptr) return;
    const bool fits = tag->Access == host::kAccessReadWrite && tag->usedSince >= 0 && tag->kind != TagKind::LogNumber;
    if (fits && (tag->kind == TagKind::Exchange) == exchange)
      return LeaveWrite(*tag, WritableValue(tag->TagNumber, operation.salt >> 8));
  }
}

void Site::InBackground(const Operation& operation, void (Site::*ask)(const Operation&, std::uint32_t device)) {
  historyThreads.push_back(scheduler->Start("history", [this, operation, ask] {
    const auto device = DeviceOf(operation.meter);
    if (device && !plan.meters[operation.meter].twin) (this->*ask)(operation, *device);
  }));
}

void Site::Start() {
  if (protocol->Start() == 0 && protocol->Start() == 0) Violate("no hang", "the poll thread cannot be started");
}

void Site::Restart(bool anew) {
  Bounded("Stop", LongestExchangeMs(), [&] { return protocol->Stop(); });
  if (anew) Configure();
  Start();
}

// Everything is put right that somebody has to put right; then all has to come to good values by itself.
void Site::CalmDown() {
  for (Fibre* const thread : historyThreads) scheduler->Join(thread);
  historyThreads.clear();
  line.Calm();
  scheduler->wrongByMs = 0;
  memoryDrill = callDrill = {};
  if (protocol->Channel.RetryCount != plan.known.retries) Restart(true);
  for (WatchedTag* const tag : tags) {
    if (tag->kind == TagKind::Exchange && tag->usedSince >= 0) LeaveWrite(*tag, 1);
  }
  const std::int64_t began = scheduler->Awake();
  const std::int64_t bound = 5 * (plan.known.pollPeriodSeconds * 1000LL + 60'000) +
                             20 * LongestExchangeMs() * static_cast<std::int64_t>(devices.size() + 1);
  for (std::string why = WhyNotWell(); !why.empty(); why = WhyNotWell()) {
    if (scheduler->Awake() - began > bound) Violate("recovers", "{} ms after the last fault {}", bound, why);
    scheduler->Wait(500);
  }
}

void Site::Run() {
  Configure();
  for (std::size_t meter = 0; meter < plan.meters.size(); ++meter) {
    if (!plan.meters[meter].dropped) AddMeter(meter);
  }
  Start();
  for (const Operation& operation : scenario.operations) {
    if (operation.channel != number) continue;
    if (operation.atMs > scheduler->Elapsed()) scheduler->Wait(operation.atMs - scheduler->Elapsed());
    if (!plan.meters[operation.meter].dropped) operation.kind->act(*this, operation);
  }
  if (scheduler->Elapsed() < scenario.durationMs) scheduler->Wait(scenario.durationMs - scheduler->Elapsed());
  CalmDown();
  Bounded("Stop", LongestExchangeMs(), [&] { return protocol->Stop(); });
  tags.clear();
  protocol->Release();
  if (!alive.empty()) Violate("tag once", "{} tags were not destroyed", alive.size());
}

}  // namespace ostrel::campaign
