#include "host/session/Channel.h"

#include <fmt/format.h>

#include <cstdio>
#include <map>
#include <utility>

#include "Protocol/link/ChannelRecord.h"
#include "Protocol/link/PortSettings.h"
#include "host/session/Failure.h"
#include "host/session/NearNames.h"
#include "host/session/RecordText.h"
#include "host/session/TagSelection.h"
#include "platform/clock.h"

namespace ostrel::host {
namespace {

/// A quality that the plug-in never gives.
constexpr std::uint16_t kNotPassed = 0xFFFF;

struct ParityName {
  const char* word;
  const char* name;  // as the plug-in knows it
};

constexpr ParityName kParityNames[] = {
    {"none", "Нет"}, {"even", "Чет"}, {"odd", "Нечет"}, {"mark", "Маркер"}, {"space", "Пробел"},
};

PortSettings MakePortSettings(const ChannelConfig& config) {
  PortSettings settings = {};
  StoreText(settings.PortName, config.port);
  settings.BaudRate = config.baud;
  settings.RetryCount = config.retries;
  settings.PollPeriod = config.pollPeriodSeconds;
  settings.PortTimeout = config.timeoutMs;
  settings.PreSendPause = config.preSendPauseMs;
  for (const ParityName& parity : kParityNames) {
    if (config.parity == parity.word) StoreText(settings.ParityName, parity.name);
  }
  return settings;
}

PortDevice MakePortDevice(const ChannelConfig& config, const std::vector<Meter>& meters) {
  PortDevice device{.port = config.port,
                    .device = config.device,
                    .line = {.lateGuardMs = config.lateGuardMs, .echo = config.echo, .pauseMs = config.preSendPauseMs},
                    .meters = {}};
  for (const Meter& meter : meters) {
    device.meters.push_back({.address = meter.config.address,
                             .type = meter.type.id,
                             .level1Password = meter.config.level1Password,
                             .level2Password = meter.config.level2Password});
  }
  return device;
}

// Which tags a list of the configuration names; all of them, or none, when it has no entry.
std::vector<bool> NamedTags(const std::vector<TagDefinition>& definitions, const std::vector<PlacedText>& names,
                            bool withoutAny) {
  std::vector<bool> chosen(definitions.size(), names.empty() && withoutAny);
  for (const PlacedText& wanted : names) {
    try {
      for (const std::size_t tag : SelectTags(definitions, wanted.text)) chosen[tag] = true;
    } catch (const Failure& failure) {
      // A tag of the command line stands in no file.
      if (wanted.place.file.empty()) throw;
      FailAt(wanted.place, failure.what());
    }
  }
  return chosen;
}

bool IsHistoryTag(IProtocol& protocol, std::uint32_t meterType, const std::string& text) {
  try {
    return !SelectTags(ReadTagDefinitions(protocol, meterType, kBranchHda), text).empty();
  } catch (const Failure&) {
    return false;
  }
}

// A tag that somebody misspelt may be right in the other branch.
void RejectHistoryTags(IProtocol& protocol, std::uint32_t meterType, const std::vector<TagDefinition>& definitions,
                       const std::vector<PlacedText>& names) {
  for (const PlacedText& wanted : names) {
    const auto known = [&wanted](const TagDefinition& tag) { return Lowered(tag.name) == Lowered(wanted.text); };
    if (std::any_of(definitions.begin(), definitions.end(), known) || !IsHistoryTag(protocol, meterType, wanted.text)) continue;
    if (wanted.text.find_first_of("*?") != std::string::npos) continue;
    const std::string what = "\"" + wanted.text + "\" is a history tag: use `history`";
    if (wanted.place.file.empty()) throw Failure(kExitUsage, what);
    FailAt(wanted.place, what);
  }
}

std::vector<std::size_t> SelectedTags(const std::vector<TagDefinition>& definitions, const MeterConfig& config) {
  const std::vector<bool> chosen = NamedTags(definitions, config.tags, true);
  std::vector<std::size_t> selected;
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    if (chosen[i]) selected.push_back(i);
  }
  return selected;
}

LateListener LatenessTeller(const ChannelConfig& config) {
  std::map<std::uint8_t, std::string> names;
  for (const MeterConfig& meter : config.meters) names.emplace(static_cast<std::uint8_t>(meter.address), meter.name);
  return [names = std::move(names)](std::uint8_t address, std::uint32_t latenessMs) {
    const auto name = names.find(address);
    fmt::print(stderr, "{}: answers come after the time-out (about {} ms): raise timeout_ms\n",
               name != names.end() ? name->second : fmt::format("meter {}", address), latenessMs);
  };
}

const MeterType& TypeOf(const std::vector<MeterType>& types, const MeterConfig& config) {
  try {
    return FindMeterType(types, config.type);
  } catch (const Failure& failure) {
    FailAt(config.typePlace, failure.what());
  }
}

}  // namespace

Channel::Channel(const Plugin& plugin, HostServices& services, const ChannelConfig& config)
    : services_(services),
      context_(services.MakeContext()),
      config_(config),
      frames_(std::make_shared<WriteFrames>()),
      link_(std::make_shared<LinkRecorder>(config.echo)),
      protocol_(plugin.CreateProtocol()) {
  ApplySettings();
  const std::vector<MeterType> types = ReadMeterTypes(*protocol_);
  meters_.reserve(config_.meters.size());
  for (const MeterConfig& meter : config_.meters) AddMeter(plugin, meter, types);
  AddPassMark();
  services_.AddPort(MakePortDevice(config_, meters_),
                    {.observer = [frames = frames_](std::span<const std::uint8_t> request,
                                                    std::span<const std::uint8_t> answer) { frames->Observe(request, answer); },
                     .late = LatenessTeller(config_),
                     .watcher = link_});
}

Channel::~Channel() { Stop(); }

void Channel::ApplySettings() {
  const PortSettings settings = MakePortSettings(config_);
  protocol_->SetPortSettings(&context_, &settings);
}

void Channel::AddMeter(const Plugin& plugin, const MeterConfig& config, const std::vector<MeterType>& types) {
  Meter meter{.config = config, .type = TypeOf(types, config), .definitions = {}, .index = 0, .tags = {}, .selected = {}};
  meter.definitions = plugin.TagsOf(*protocol_, meter.type.id);
  const std::vector<TagDefinition>& definitions = *meter.definitions;
  RejectHistoryTags(*protocol_, meter.type.id, definitions, config.tags);
  if (config.polled) meter.selected = SelectedTags(definitions, config);
  const std::vector<bool> protectedTags = NamedTags(definitions, config.readOnly, false);
  const std::vector<bool> writable = NamedTags(definitions, config.writable, true);
  const DeviceConfig record = MakeDeviceConfig(config, meter.type.id);
  meter.index = static_cast<std::uint32_t>(protocol_->AddDevice(&record));
  meter.tags.reserve(definitions.size());
  for (std::size_t i = 0; i < definitions.size(); ++i) {
    meter.tags.push_back(MakeTag(definitions[i], PortNumberOf(config_.port), config.address));
    meter.tags.back().readOnly = protectedTags[i] || !writable[i];
    protocol_->AddTag(meter.index, meter.tags.back().tag);
  }
  for (const std::size_t tag : meter.selected) meter.tags[tag].tag->Use();
  meters_.push_back(std::move(meter));
}

void Channel::AddPassMark() {
  const DeviceConfig record{};
  const std::int32_t index = protocol_->AddDevice(&record);
  passMark_ = new CDeviceTag;
  passMark_->Quality = kNotPassed;
  protocol_->AddTag(static_cast<std::uint32_t>(index), passMark_);
}

void Channel::Start() {
  // A transaction of a stopped channel leaves it with one try; the settings bring the configured number back.
  ApplySettings();
  lookedAt_ = platform::TickCount();
  if (protocol_->Start() == 0) throw Failure(kExitPort, config_.port + ": the poll thread cannot be started");
}

void Channel::Stop() { protocol_->Stop(); }

bool Channel::PassEnded() {
  if (passMark_->Quality == kNotPassed) return false;
  passMark_->Quality = kNotPassed;
  return true;
}

bool Channel::TakePass(PassReport& report) {
  const PollGuard guard(*protocol_);
  const std::uint32_t now = platform::TickCount();
  if (!PassEnded()) {
    lookedAt_ = now;
    return false;
  }
  report.pass = ++passes_;
  report.seconds = static_cast<double>(now - lookedAt_) / 1000.0;
  report.periodSeconds = config_.pollPeriodSeconds;
  lookedAt_ = now;
  report.meters.resize(meters_.size());
  for (std::size_t i = 0; i < meters_.size(); ++i) {
    Refresh(meters_[i], report.meters[i]);
    report.meters[i].link = link_->Of(meters_[i].config.address);
  }
  return true;
}

// Tags are only ever added to those selected.
void Channel::Refresh(Meter& meter, MeterReadings& readings) {
  readings.meter = &meter;
  const std::size_t before = readings.tags.size();
  readings.tags.insert(readings.tags.end(), meter.selected.begin() + static_cast<std::ptrdiff_t>(before), meter.selected.end());
  readings.readings.resize(readings.tags.size());
  for (std::size_t i = 0; i < readings.tags.size(); ++i) host::Refresh(meter.tags[readings.tags[i]], readings.readings[i]);
  for (std::size_t i = before; i < readings.tags.size(); ++i) readings.readings[i].changed = true;
}

const DeviceEntry& Channel::Record(const Meter& meter) { return protocol_->GetChannel()->Devices[meter.index]; }

void Channel::SelectTag(Meter& meter, std::size_t tag) {
  const PollGuard guard(*protocol_);
  for (const std::size_t selected : meter.selected) {
    if (selected == tag) return;
  }
  meter.selected.push_back(tag);
  meter.tags[tag].tag->Use();
}

}  // namespace ostrel::host
