// What the host of a channel does.
#include <algorithm>
#include <bit>
#include <cstring>

#include "Protocol/link/PortSettings.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/text.h"
#include "tests/campaign/Plants.h"
#include "tests/campaign/Site.h"
#include "tests/campaign/Violation.h"

namespace ostrel::campaign {
namespace {

constexpr std::int64_t kMinuteMs = 60'000;

template <std::size_t Size>
void CopyText(char (&field)[Size], const std::string& text) {
  std::memcpy(field, text.c_str(), std::min(text.size() + 1, Size));
}

/// The watchers hear of its end.
class CampaignTag final : public CDeviceTag {
 public:
  explicit CampaignTag(Site& site) : site_(site) {}
  void Destroy(std::uint32_t flags) override {
    site_.TagEnds(this);
    CDeviceTag::Destroy(flags);
  }

 private:
  Site& site_;
};

CDeviceTag* MakeTag(Site& site, std::uint32_t number, std::uint32_t address) {
  const TagDescriptor& row = TagDescriptors()[number];
  auto* const tag = new CampaignTag(site);
  tag->TagNumber = number;
  tag->DeviceAddress = address;
  tag->CanonicalType = static_cast<std::uint16_t>(row.DataType);
  tag->Value.vt = static_cast<VARTYPE>(row.DataType);
  tag->Code = row.Code;
  tag->Param = row.Param;
  tag->SubParam = row.SubParam;
  tag->RequestLength = row.RequestLength;
  tag->Access = row.Access;
  tag->WriteLength = row.WriteLength;
  tag->WriteParam = row.WriteParam;
  tag->Aux = row.Aux;
  tag->ExpectedLength = row.ExpectedLength;
  return tag;
}

/// A value that the meter keeps as it is written.
double WritableValue(std::uint32_t tag, std::uint64_t salt) {
  if (tag == 6 || tag == 7) return static_cast<double>(1 + salt % 200);
  if (tag == 212 || tag == 100 || tag == 185 || tag == 211) return static_cast<double>(salt % 2);
  if (tag == 213) return static_cast<double>(1 + salt % 25);
  if (tag >= 219 && tag <= 222) return static_cast<double>(1 + salt % 6000);
  return tag == 97 || tag == 98 ? 1 : static_cast<double>(1 + salt % 100);
}

}  // namespace

Site::Site(const Scenario& scenario, std::uint32_t channel, VirtualTime& time)
    : scenario_(scenario),
      plan_(scenario.channels[channel]),
      number_(channel),
      time_(time),
      line_(scenario, channel, time),
      log_(("events" + std::to_string(channel)).c_str(), 1024, true),
      protocol_(new WatchedProtocol(*this)) {
  protocol_->AddRef();
  ReadLog("events" + std::to_string(channel), [this](std::string_view text) { LogLine(text); });
  line_.sending = [this](auto) { HostIsCalled("the port sends"); };
  directory_->Set("COM" + std::to_string(channel + 1), {.open =
                                                            [this](std::string&) -> std::unique_ptr<host::ByteStream> {
                                                              HostIsCalled("the port opens");
                                                              if (!line_.Open()) return nullptr;
                                                              return std::make_unique<LineStream>(line_);
                                                            },
                                                        .line = plan_.line,
                                                        .observer = {}});
  context_.ObjectProvider = &provider_;
  context_.LogFile = &log_;
  context_.Trace = &trace_;
  Scheduler::Current()->Watch(&context_.TagLock, [this] { TagsMayHaveChanged(); });
}

Site::~Site() = default;

template <class Call>
auto Site::Bounded(const char* name, std::int64_t boundMs, Call call) {
  Scheduler& scheduler = *Scheduler::Current();
  const std::int64_t began = scheduler.Awake();
  const auto result = call();
  const std::int64_t took = scheduler.Awake() - began;
  if (took > boundMs) Violate(Invariant::NoHang, std::string(name) + " took " + std::to_string(took) + " ms, at most " + std::to_string(boundMs));
  return result;
}

void Site::Configure() {
  PortSettings settings{};
  CopyText(settings.PortName, "COM" + std::to_string(number_ + 1));
  CopyText(settings.ParityName, platform::Utf8ToCp1251("Нет"));
  settings.BaudRate = plan_.baud;
  settings.RetryCount = plan_.retries;
  settings.PollPeriod = plan_.pollPeriodSeconds;
  settings.PortTimeout = plan_.timeoutMs;
  settings.PreSendPause = plan_.preSendPauseMs;
  context_.ClockCorrectionDays = plan_.clockCorrectionDays;
  Bounded("SetPortSettings", 3 * LongestExchangeMs(), [&] { return protocol_->SetPortSettings(&context_, &settings); });
}

void Site::AddMeter(std::size_t meter) {
  const MeterPlan& plan = plan_.meters[meter];
  DeviceConfig config{};
  config.Address = plan.spec.address;
  config.TypeId = plan.type;
  CopyText(config.Level1Password, plan.password1);
  CopyText(config.Level2Password, plan.password2);
  config.FailHoldTimer.period = plan.failHoldMs;
  config.LogRequest = plan.log;
  config.ExchangeOn = 1;
  config.TimeSetByte = 1;
  if (protocol_->AddDevice(&config) != static_cast<std::int32_t>(devices_.size())) return;
  devices_.push_back({.meter = meter});
  ++tableChanges_;
  AddTags(meter);
}

void Site::AddTags(std::size_t meter) {
  for (const std::uint32_t number : plan_.meters[meter].tags) {
    auto watched = std::make_unique<WatchedTag>();
    watched->tag = MakeTag(*this, number, plan_.meters[meter].spec.address);
    watched->meter = meter;
    watched->number = number;
    watched->quality = watched->tag->Quality;
    watched->timestamp = watched->tag->Timestamp;
    if (number % 7 != 0) {
      watched->tag->Use();
      watched->usedSince = Scheduler::Current()->Elapsed();
    }
    ended_.emplace(watched->tag, 0);
    protocol_->AddTag(static_cast<std::uint32_t>(devices_.size() - 1), watched->tag);
    tags_.push_back(std::move(watched));
  }
}

void Site::RemoveMeter(std::size_t meter) {
  const auto device = DeviceOf(meter);
  if (!device) return;
  protocol_->LockPoll();
  protocol_->RemoveDevice(static_cast<std::int32_t>(*device));
  devices_.erase(devices_.begin() + *device);
  ++tableChanges_;
  std::erase_if(tags_, [meter](const auto& tag) { return tag->meter == meter; });
  protocol_->UnlockPoll();
}

std::optional<std::uint32_t> Site::DeviceOf(std::size_t meter) const {
  const auto found = std::ranges::find(devices_, meter, &Device::meter);
  if (found == devices_.end()) return std::nullopt;
  return static_cast<std::uint32_t>(found - devices_.begin());
}

WatchedTag* Site::AnyTag(std::size_t meter, std::uint64_t salt) {
  std::vector<WatchedTag*> own;
  for (const auto& tag : tags_) {
    if (tag->meter == meter) own.push_back(tag.get());
  }
  return own.empty() ? nullptr : own[salt % own.size()];
}

void Site::LeaveWrite(WatchedTag& watched, double value) {
  const platform::CriticalSectionGuard guard(context_.TagLock);
  CDeviceTag& tag = *watched.tag;
  tag.WriteValue.vt = tag.CanonicalType;
  if (tag.CanonicalType == VT_UI1) {
    tag.WriteValue.bVal = static_cast<BYTE>(value);
  } else if (tag.CanonicalType == VT_BOOL) {
    tag.WriteValue.boolVal = static_cast<std::int16_t>(value);
  } else {
    tag.WriteValue.fltVal = static_cast<float>(value);
  }
  watched.writing = true;
  watched.written = value;
  watched.sent = 0;
  watched.confirmed = false;
  confirmed_.clear();
  StoreFlag(tag.WritePending, 1);
}

void Site::Write(const Operation& operation) {
  const std::uint32_t wanted = operation.kind == OperationKind::SwitchExchange ? 211 : 0;
  for (std::uint64_t i = 0; i < 30; ++i) {
    WatchedTag* const tag = AnyTag(operation.meter, operation.salt % 1000 + i);
    if (tag == nullptr) return;
    if (tag->tag->Access != 3 || tag->usedSince < 0 || (tag->number == 211) != (wanted == 211) || tag->number == 102) continue;
    return LeaveWrite(*tag, WritableValue(tag->number, operation.salt >> 8));
  }
}

void Site::Start() {
  if (protocol_->Start() == 0 && protocol_->Start() == 0) Violate(Invariant::NoHang, "the poll thread cannot be started");
}

void Site::Restart() {
  Bounded("Stop", LongestExchangeMs(), [&] { return protocol_->Stop(); });
  if (scenario_.seed % 2 == 0) Configure();
  Start();
}

void Site::Do(const Operation& operation) {
  WatchedTag* const tag = AnyTag(operation.meter, operation.salt);
  Scheduler& scheduler = *Scheduler::Current();
  switch (operation.kind) {
    case OperationKind::UseTag:
      if (tag == nullptr || tag->usedSince >= 0) return;
      tag->usedSince = scheduler.Elapsed();
      return tag->tag->Use();
    case OperationKind::LeaveTag:
      if (tag == nullptr || tag->usedSince < 0) return;
      tag->usedSince = -1;
      return tag->tag->Unuse();
    case OperationKind::Write:
    case OperationKind::SwitchExchange:
      return Write(operation);
    case OperationKind::RemoveMeter:
      return RemoveMeter(operation.meter);
    case OperationKind::AddMeter:
      if (DeviceOf(operation.meter)) return;
      protocol_->LockPoll();
      AddMeter(operation.meter);
      protocol_->UnlockPoll();
      return;
    case OperationKind::Restart:
    case OperationKind::ChangeSettings:
      return Restart();
    case OperationKind::SignalAndStart:
      protocol_->SignalStop();
      passThread_ = 0;  // the next pass need not wait for its time
      scheduler.Sleep(static_cast<std::int64_t>(operation.salt % 3000));
      return Start();
    case OperationKind::WrongClock:
      return time_.SetWrongBy(static_cast<std::int64_t>(operation.salt % 400'000) - 200'000);
    case OperationKind::Suspend:
      return scheduler.Suspend(static_cast<std::int64_t>(operation.salt % (90 * kMinuteMs)));
    case OperationKind::FailAllocation:
      MemoryDrill() = {.left = static_cast<std::uint32_t>(1 + operation.salt % 60), .thread = protocol_->ThreadId};
      return;
    case OperationKind::FailCall:
      logFailed_ = true;
      CallDrill() = {.left = static_cast<std::uint32_t>(1 + operation.salt % 3), .thread = operation.salt % 2 == 0 ? scheduler.Self() : protocol_->ThreadId};
      return;
    default:
      historyThreads_.push_back(scheduler.Start("history", [this, operation] { AskHistory(operation); }));
  }
}

// Everything is put right that somebody has to put right; then all has to come to good values by itself.
void Site::CalmDown() {
  Scheduler& scheduler = *Scheduler::Current();
  for (Fibre* const thread : historyThreads_) scheduler.Join(thread);
  historyThreads_.clear();
  line_.Calm();
  time_.SetWrongBy(0);
  MemoryDrill() = CallDrill() = {};
  if (protocol_->Channel.RetryCount != plan_.retries) {
    Bounded("Stop", LongestExchangeMs(), [&] { return protocol_->Stop(); });
    Configure();
    Start();
  }
  for (const auto& tag : tags_) {
    if (tag->number == 211 && tag->usedSince >= 0) LeaveWrite(*tag, 1);
  }
  const std::int64_t began = scheduler.Awake();
  const std::int64_t bound = 5 * (plan_.pollPeriodSeconds * 1000LL + 60'000) +
                             20 * LongestExchangeMs() * static_cast<std::int64_t>(devices_.size() + 1);
  while (!WhyNotWell().empty()) {
    if (scheduler.Awake() - began > bound) Violate(Invariant::Recovers, std::to_string(bound) + " ms after the last fault " + WhyNotWell());
    scheduler.Sleep(500);
  }
}

void Site::Run() {
  Scheduler& scheduler = *Scheduler::Current();
  Configure();
  for (std::size_t meter = 0; meter < plan_.meters.size(); ++meter) {
    if (!plan_.meters[meter].dropped) AddMeter(meter);
  }
  Start();
  for (const Operation& operation : scenario_.operations) {
    if (operation.channel != number_) continue;
    if (operation.atMs > scheduler.Elapsed()) scheduler.Sleep(operation.atMs - scheduler.Elapsed());
    if (!plan_.meters[operation.meter].dropped) Do(operation);
  }
  if (scheduler.Elapsed() < scenario_.durationMs) scheduler.Sleep(scenario_.durationMs - scheduler.Elapsed());
  CalmDown();
  Bounded("Stop", LongestExchangeMs(), [&] { return protocol_->Stop(); });
  tags_.clear();
  protocol_->Release();
  protocol_ = nullptr;
  for (const auto& [tag, times] : ended_) {
    if (times != 1) Violate(Invariant::TagOnce, "a tag was destroyed " + std::to_string(times) + " times");
  }
}

}  // namespace ostrel::campaign
