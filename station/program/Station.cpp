#include "station/program/Station.h"

#include <fmt/format.h>

#include <set>

#include "host/session/Failure.h"
#include "platform/clock.h"
#include "station/program/Journal.h"

namespace ostrel::station {
namespace {

constexpr std::int64_t kForgetSeconds = 3600;
constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kMegabyte = 1'000'000;

}  // namespace

Station::Station(const host::Plugin& plugin, const StationSettings& settings, const std::string& stateFolder)
    : plugin_(plugin),
      settings_(settings),
      writer_(settings.archive.database, [](const std::string& problem) { Say(Priority::Error, "archive: " + problem); }),
      readers_(settings.archive.database),
      parts_{.plugin = plugin,
             .settings = settings_.archive,
             .logFolder = stateFolder,
             .writer = writer_,
             .readers = readers_,
             .live = live_,
             .journal = [](const std::string& from, const std::string& line) { Say(Priority::Info, from + ": " + line); },
             .forward = [this](Archive& archive, const OutValue& value) { Forward(archive, value); }} {
  settings_.mqtt.reset();
  settings_.web.reset();
  settings_.lines.channels.clear();
  Apply(settings);
}

Station::~Station() {
  SignalStop();
  StopAll();
}

void Station::StopAll() {
  web_.reset();
  workers_.clear();
  // The writer goes on until it is destroyed; what it still has for the broker is in the archive.
  std::shared_ptr<Publisher> publisher;
  const std::lock_guard lock(mutex_);
  publisher.swap(publisher_);
}

void Station::SignalStop() {
  const std::lock_guard lock(mutex_);
  for (const auto& [port, worker] : workers_) worker->SignalStop();
  if (web_) web_->SignalStop();
}

// What only the plug-in knows is found out by building each changed channel once.
void Station::CheckUsable(const StationSettings& settings) const {
  if (!(settings.archive == settings_.archive)) {
    throw host::Failure(host::kExitUsage, settings.lines.file + ": [archive] cannot change while the station runs: restart it");
  }
  for (const host::ChannelConfig& channel : settings.lines.channels) {
    host::Config one = settings.lines;
    one.channels = {channel};
    const host::Session probe(plugin_, one, host::Session::Clocks::LeaveAlone);
  }
}

void Station::Apply(const StationSettings& settings) {
  CheckUsable(settings);
  const StationSettings before = settings_;
  try {
    ApplyMqtt(settings);
    ApplyWeb(settings);
  } catch (const host::Failure&) {
    ApplyMqtt(before);
    ApplyWeb(before);
    throw;
  }
  ApplyChannels(settings);
  settings_.lines = settings.lines;
}

void Station::ApplyMqtt(const StationSettings& settings) {
  if (settings.mqtt == settings_.mqtt) return;
  std::shared_ptr<Publisher> publisher;
  if (settings.mqtt)
    publisher = std::make_shared<Publisher>(parts_, *settings.mqtt, [this](const WriteOrder& order) { Write(order); });
  {
    const std::lock_guard lock(mutex_);
    publisher_.swap(publisher);
  }
  settings_.mqtt = settings.mqtt;
}

void Station::ApplyChannels(const StationSettings& settings) {
  const bool shared = settings.lines.logFile == settings_.lines.logFile &&
                      settings.lines.traceFile == settings_.lines.traceFile &&
                      settings.lines.traceSettings == settings_.lines.traceSettings &&
                      settings.lines.clockCorrectionDays == settings_.lines.clockCorrectionDays;
  std::map<std::string, std::shared_ptr<ChannelWorker>> kept;
  std::map<std::string, std::shared_ptr<ChannelWorker>> old;
  {
    const std::lock_guard lock(mutex_);
    old.swap(workers_);
  }
  for (const host::ChannelConfig& channel : settings.lines.channels) {
    const auto found = old.find(channel.port);
    if (!shared || found == old.end() || !(found->second->Config() == channel)) continue;
    kept.insert(old.extract(found));
  }
  for (const auto& [port, worker] : old) worker->SignalStop();
  // A port is closed before it is opened anew.
  old.clear();
  for (const host::ChannelConfig& channel : settings.lines.channels) {
    if (kept.contains(channel.port)) continue;
    const auto worker = std::make_shared<ChannelWorker>(parts_, settings.lines, channel);
    worker->Start();
    kept.emplace(channel.port, worker);
  }
  const std::lock_guard lock(mutex_);
  workers_ = std::move(kept);
}

void Station::ApplyWeb(const StationSettings& settings) {
  if (settings.web == settings_.web) return;
  web_.reset();
  settings_.web = settings.web;
  if (!settings.web) return;
  web_ = std::make_unique<WebServer>(*settings.web, WebParts{.station = settings_.archive.station,
                                                             .live = live_,
                                                             .readers = readers_,
                                                             .writer = writer_,
                                                             .alive = [this] { return Alive(); },
                                                             .brokerConnected = [this]() -> std::optional<bool> {
                                                               const std::lock_guard lock(mutex_);
                                                               if (!publisher_) return std::nullopt;
                                                               return publisher_->Connected();
                                                             },
                                                             .write = [this](const WriteOrder& order) { Write(order); }});
}

void Station::Write(const WriteOrder& order) {
  const std::lock_guard lock(mutex_);
  for (const auto& [port, worker] : workers_) {
    for (const host::MeterConfig& meter : worker->Config().meters) {
      if (meter.name != order.meter) continue;
      worker->Write(order);
      return;
    }
  }
  throw host::Failure(host::kExitUsage, "there is no meter \"" + order.meter + "\"");
}

void Station::Forward(Archive& archive, const OutValue& value) {
  std::shared_ptr<Publisher> publisher;
  {
    const std::lock_guard lock(mutex_);
    publisher = publisher_;
  }
  if (publisher) publisher->Forward(archive, value);
}

bool Station::Alive() {
  const std::lock_guard lock(mutex_);
  for (const auto& [port, worker] : workers_) {
    if (!worker->Alive()) return false;
  }
  return true;
}

void Station::Tick() {
  std::vector<std::shared_ptr<ChannelWorker>> again;
  {
    const std::lock_guard lock(mutex_);
    for (auto at = workers_.begin(); at != workers_.end();) {
      if (!at->second->WantsRestart()) {
        ++at;
        continue;
      }
      again.push_back(std::move(at->second));
      at = workers_.erase(at);
    }
  }
  for (std::shared_ptr<ChannelWorker>& worker : again) {
    const host::ChannelConfig channel = worker->Config();
    Say(Priority::Warning, channel.port + ": a meter was exchanged; the channel begins anew");
    worker.reset();
    const auto fresh = std::make_shared<ChannelWorker>(parts_, settings_.lines, channel);
    fresh->Start();
    const std::lock_guard lock(mutex_);
    workers_[channel.port] = fresh;
  }
  Forget();
}

void Station::Forget() {
  const std::int64_t now = platform::UtcSeconds();
  if (now - forgotAt_ < kForgetSeconds) return;
  forgotAt_ = now;
  const ArchiveSettings& settings = settings_.archive;
  const std::int64_t current = settings.keepCurrentDays == 0 ? 0 : now - settings.keepCurrentDays * kDay;
  const std::int64_t records = settings.keepRecordDays == 0 ? 0 : now - settings.keepRecordDays * kDay;
  writer_.Add([current, records, limit = settings.limitMb * kMegabyte](Archive& archive) {
    archive.Forget(current, records);
    if (limit > 0 && archive.Base().SizeBytes() > limit) archive.ForgetOldestCurrent();
  });
}

}  // namespace ostrel::station
