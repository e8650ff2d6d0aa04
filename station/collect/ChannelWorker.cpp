#include "station/collect/ChannelWorker.h"

#include <fmt/format.h>

#include <utility>

#include "host/session/Failure.h"
#include "host/session/TagSelection.h"
#include "platform/clock.h"

namespace ostrel::station {
namespace {

constexpr std::uint32_t kSerialTag = 20000;
/// Beyond its poll period a channel may be without any sign of life for so long.
constexpr std::uint32_t kStillMs = 120'000;

host::Config OneChannel(const host::Config& lines, const host::ChannelConfig& channel, const std::string& logFolder) {
  host::Config config = lines;
  config.channels = {channel};
  if (config.logFile.empty()) config.logFile = fmt::format("{}/events-{}.log", logFolder, channel.port);
  // A meter is known by its serial number.
  for (host::MeterConfig& meter : config.channels.front().meters) {
    if (!meter.tags.empty()) meter.tags.push_back({.text = std::to_string(kSerialTag), .place = {}});
  }
  return config;
}

std::size_t PlaceOfSerial(const host::Meter& meter) {
  for (std::size_t i = 0; i < meter.selected.size(); ++i) {
    if (meter.tags[meter.selected[i]].definition.id == kSerialTag) return i;
  }
  throw host::Failure(host::kExitUsage, meter.config.name + ": meters of this type have no serial number");
}

}  // namespace

ChannelWorker::ChannelWorker(StationParts& parts, const host::Config& lines, const host::ChannelConfig& channel)
    : parts_(parts),
      config_(channel),
      session_(std::make_unique<host::Session>(parts.plugin, OneChannel(lines, channel, parts.logFolder),
                                               host::Session::Clocks::Keep)),
      channel_(*session_->Channels().front()) {
  session_->Services().WrapPort(config_.port, [figures = figures_](std::unique_ptr<host::ByteStream> stream) {
    return Watched(std::move(stream), figures);
  });
  for (host::Meter& meter : channel_.Meters()) AddSlot(meter);
}

ChannelWorker::~ChannelWorker() {
  SignalStop();
  if (filler_.joinable()) filler_.join();
  session_->Stop();
  parts_.live.RemoveChannel(config_.port);
}

void ChannelWorker::AddSlot(host::Meter& meter) {
  auto slot = std::make_unique<Slot>();
  slot->meter = &meter;
  slot->serialTag = PlaceOfSerial(meter);
  slot->keptMs.resize(meter.selected.size());
  slot->fill = std::make_unique<MeterFill>(channel_, meter, HistoryTags(meter));
  LiveMeter live{.channel = config_.port,
                 .name = meter.config.name,
                 .address = meter.config.address,
                 .type = meter.type.display,
                 .serial = {},
                 .tags = {},
                 .fill = {},
                 .figures = {}};
  for (const std::size_t tag : meter.selected) {
    const host::TagDefinition& definition = meter.tags[tag].definition;
    slot->units.push_back(UnitOf(definition.id));
    live.tags.push_back({.id = definition.id,
                         .name = definition.name,
                         .unit = slot->units.back(),
                         .writable = definition.Writable(),
                         .reading = {}});
  }
  parts_.live.SetMeter(std::move(live));
  slots_.push_back(std::move(slot));
}

std::vector<host::HistoryTag> ChannelWorker::HistoryTags(const host::Meter& meter) {
  const std::vector<host::TagDefinition> definitions = host::ReadTagDefinitions(channel_.Protocol(), meter.type.id, kBranchHda);
  std::vector<bool> chosen(definitions.size());
  for (const host::PlacedText& wanted : parts_.settings.history) {
    try {
      for (const std::size_t tag : host::SelectTags(definitions, wanted.text)) chosen[tag] = true;
    } catch (const host::Failure&) {
      // Types differ in what they keep; a pattern need not fit all of them.
    }
  }
  std::vector<host::HistoryTag> tags;
  for (std::size_t i = 0; i < definitions.size(); ++i) {
    if (chosen[i]) tags.push_back(host::DescribeHistoryTag(definitions[i], std::nullopt));
  }
  return tags;
}

void ChannelWorker::Start() {
  lastPassAt_ = platform::TickCount();
  session_->Start(
      [this](host::Channel&, const host::PassReport& report) {
        HandlePass(report);
        return false;
      },
      0);
  filler_ = std::thread(&ChannelWorker::FillLoop, this);
}

void ChannelWorker::SignalStop() {
  {
    const std::lock_guard lock(stopMutex_);
    stopping_ = true;
  }
  stopped_.notify_all();
  channel_.Protocol().SignalStop();
}

bool ChannelWorker::Alive() const {
  const std::uint32_t now = platform::TickCount();
  const std::uint32_t quiet = std::min(now - lastPassAt_, now - figures_->LastActivity());
  return quiet < kStillMs + config_.pollPeriodSeconds * 1000;
}

void ChannelWorker::Write(const WriteOrder& order) {
  for (const auto& slot : slots_) {
    if (slot->meter->config.name != order.meter) continue;
    const std::size_t tag = slot->meter->FindTag(order.tag);
    host::CheckWrite(slot->meter->tags[tag], order.value);
    const std::lock_guard lock(writeMutex_);
    orders_.push_back(order);
    return;
  }
  throw host::Failure(host::kExitUsage, "there is no meter \"" + order.meter + "\"");
}

}  // namespace ostrel::station
