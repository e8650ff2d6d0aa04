#include "host/session/Session.h"

#include <utility>

#include "host/session/Failure.h"
#include "host/session/NearNames.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kWaitStepMs = 20;

ServiceSettings MakeServiceSettings(const Config& config, const std::string& logFile, Session::Clocks clocks) {
  return {.logFile = logFile,
          .logLimitKb = config.logLimitKb,
          .traceFile = config.traceFile,
          .traceSettings = config.traceSettings,
          .clockCorrectionDays = clocks == Session::Clocks::Keep ? config.clockCorrectionDays : 0};
}

[[noreturn]] void FailNoMeter(const std::string& name, const std::vector<std::string>& known) {
  throw Failure(kExitUsage, "there is no meter \"" + name + "\"" + DidYouMean(name, known));
}

}  // namespace

Session::Session(const Plugin& plugin, const Config& config, Clocks clocks)
    : events_(config), services_(MakeServiceSettings(config, events_.File(), clocks)) {
  if (!config.traceFile.empty()) {
    events_.Note(
        config.traceFile +
        ": this trace holds the meters' passwords in clear text; `ostrel-host trace` makes a copy without them to hand on");
  }
  for (const ChannelConfig& channel : config.channels) channels_.push_back(std::make_unique<Channel>(plugin, services_, channel));
}

Session::~Session() { EndThreads(); }

void Session::Start(PassHandler handler, std::uint32_t passes, std::function<void()> done) {
  handler_ = std::move(handler);
  done_ = std::move(done);
  running_ = channels_.size();
  for (const auto& channel : channels_) {
    channel->Start();
    watchers_.emplace_back(&Session::Watch, this, std::ref(*channel), passes);
  }
}

void Session::Watch(Channel& channel, std::uint32_t passes) {
  try {
    WatchPasses(channel, passes);
  } catch (...) {
    const std::lock_guard lock(handling_);
    if (!failure_) failure_ = std::current_exception();
  }
  channel.Protocol().SignalStop();
  if (--running_ == 0 && done_) done_();
}

void Session::WatchPasses(Channel& channel, std::uint32_t passes) {
  PassReport report;
  while (!stopping_) {
    if (!channel.TakePass(report)) {
      platform::Sleep(kPassLookMs);
      continue;
    }
    const bool last = passes != 0 && report.pass == passes;
    if (last) channel.Protocol().SignalStop();
    const std::lock_guard lock(handling_);
    if (handler_(channel, report) || last) return;
  }
}

void Session::Stop() {
  EndThreads();
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

void Session::EndThreads() {
  stopping_ = true;
  // Asked first, so that all of them end the meter at hand together.
  for (const auto& channel : channels_) channel->Protocol().SignalStop();
  for (std::thread& watcher : watchers_) watcher.join();
  watchers_.clear();
  for (const auto& channel : channels_) channel->Stop();
}

bool Session::WaitUntilDone() const {
  while (!Done()) {
    if (platform::Interrupted()) return false;
    platform::Sleep(kWaitStepMs);
  }
  return true;
}

void Session::Exclusively(const std::function<void()>& work) {
  const std::lock_guard lock(handling_);
  work();
}

MeterPlace Session::FindMeter(const std::string& name) {
  std::vector<std::string> known;
  for (const auto& channel : channels_) {
    for (Meter& meter : channel->Meters()) {
      if (meter.config.name == name) return {.channel = channel.get(), .meter = &meter};
      known.push_back(meter.config.name);
    }
  }
  FailNoMeter(name, known);
}

Config OnlyMeter(const Config& config, const std::string& meter) {
  std::vector<std::string> known;
  for (const ChannelConfig& channel : config.channels) {
    for (const MeterConfig& candidate : channel.meters) {
      known.push_back(candidate.name);
      if (candidate.name != meter) continue;
      Config only = config;
      only.channels = {channel};
      only.channels.front().meters = {candidate};
      return only;
    }
  }
  FailNoMeter(meter, known);
}

}  // namespace ostrel::host
