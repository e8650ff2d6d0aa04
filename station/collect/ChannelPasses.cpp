// What becomes of a pass: readings are shown and kept, writes go on, the meter's identity is looked at.
#include <fmt/format.h>

#include <cmath>

#include "platform/clock.h"
#include "station/collect/ChannelWorker.h"

namespace ostrel::station {
namespace {

constexpr std::uint16_t kGood = 192;
constexpr std::uint32_t kConstantTag = 20004;
constexpr std::int64_t kLinkSeconds = 900;
constexpr std::int64_t kWriteSeconds = 120;

/// A value counts only with good quality.
CurrentValue ToCurrent(const host::TagReading& reading) {
  CurrentValue current{.utcMs = UtcMs(reading.timestamp), .number = {}, .text = {}, .quality = reading.quality};
  if (reading.quality != kGood) {
    // The time of the last good reading stays with the tag; what changed, changed now.
    current.utcMs = platform::UtcMilliseconds();
    return current;
  }
  if (const auto* const number = std::get_if<float>(&reading.value)) {
    if (std::isfinite(*number)) current.number = *number;
  }
  if (const auto* const whole = std::get_if<std::int32_t>(&reading.value)) current.number = *whole;
  if (const auto* const truth = std::get_if<bool>(&reading.value)) current.number = *truth ? 1 : 0;
  if (const auto* const text = std::get_if<std::string>(&reading.value)) current.text = *text;
  return current;
}

struct KeptValue {
  std::int64_t tag;
  std::string name;
  std::string unit;
  CurrentValue value;
};

}  // namespace

void ChannelWorker::HandlePass(const host::PassReport& report) {
  lastPassAt_ = platform::TickCount();
  for (std::size_t i = 0; i < report.meters.size(); ++i) HandleMeter(*slots_[i], report.meters[i]);
  parts_.live.SetChannel({.port = config_.port,
                          .problem = session_->Services().PortProblem(config_.port),
                          .passes = report.pass,
                          .passSeconds = report.seconds,
                          .periodSeconds = config_.pollPeriodSeconds});
  KeepEvents();
  AfterPassWrites();
}

void ChannelWorker::HandleMeter(Slot& slot, const host::MeterReadings& readings) {
  const host::TagReading& serial = readings.readings[slot.serialTag];
  const auto* const number = std::get_if<std::string>(&serial.value);
  const bool linked = serial.quality == kGood && number != nullptr;
  if (linked) Identify(slot, *number);
  if (linked && !slot.exchanged && !slot.confirmed) slot.checkDue = true;  // the link is new, or restored
  slot.confirmed = linked && !slot.exchanged;
  if (slot.confirmed) ++slot.confirmations;
  const MeterFigures figures = figures_->Of(slot.meter->config.address);
  const std::vector<std::size_t> changed =
      parts_.live.Update(slot.meter->config.name, readings.readings, linked, slot.serial, figures);
  // Silent from the start, nobody knows which meter it is.
  if (slot.serial.empty() || slot.exchanged) return;
  KeepValues(slot, readings, changed);
  KeepLink(slot, figures);
}

void ChannelWorker::Identify(Slot& slot, const std::string& serial) {
  if (slot.serial == serial) return;
  if (!slot.serial.empty()) {
    slot.exchanged = true;
    wantsRestart_ = true;
    return;
  }
  slot.serial = serial;
  MeterRow row;
  row.place = {.station = parts_.settings.station, .channel = config_.port, .name = slot.meter->config.name};
  row.address = slot.meter->config.address;
  row.type = slot.meter->type.id;
  row.serial = serial;
  row.since = platform::UtcSeconds();
  parts_.writer.Add([row, key = slot.key](Archive& archive) {
    const std::optional<MeterRow> before = archive.MeterAt(row.place);
    *key = archive.Enter(row);
    if (!before || before->serial == row.serial || before->serial.empty()) return;
    archive.Put(row.place.station,
                EventRow{.utc = row.since,
                         .channel = row.place.channel,
                         .text = fmt::format("{}: meter {} was exchanged for {}", row.place.name, before->serial, row.serial)});
  });
}

void ChannelWorker::KeepValues(Slot& slot, const host::MeterReadings& readings, const std::vector<std::size_t>& changed) {
  const std::int64_t now = platform::UtcMilliseconds();
  std::vector<bool> due(readings.tags.size());
  for (const std::size_t tag : changed) due[tag] = true;
  std::vector<KeptValue> kept;
  for (std::size_t i = 0; i < readings.tags.size(); ++i) {
    if (!due[i] && now - slot.keptMs[i] < std::int64_t{parts_.settings.currentSeconds} * 1000) continue;
    slot.keptMs[i] = now;
    const host::TagDefinition& definition = slot.meter->tags[readings.tags[i]].definition;
    kept.push_back(
        {.tag = definition.id, .name = definition.name, .unit = slot.units[i], .value = ToCurrent(readings.readings[i])});
  }
  if (kept.empty()) return;
  parts_.writer.Add(
      [&forward = parts_.forward, meter = slot.meter->config.name, key = slot.key, kept = std::move(kept)](Archive& archive) {
        for (const KeptValue& value : kept) {
          archive.Put(*key, value.tag, value.value);
          archive.NameTag(*key, value.tag, value.name, value.unit);
          if (value.tag == kConstantTag && value.value.number) archive.SetConstant(*key, *value.value.number);
          if (forward) {
            forward(archive, {.meter = meter,
                              .tag = value.tag,
                              .name = value.name,
                              .unit = value.unit,
                              .current = &value.value,
                              .record = nullptr});
          }
        }
      });
}

void ChannelWorker::KeepLink(Slot& slot, const MeterFigures& figures) {
  const std::int64_t now = platform::UtcSeconds();
  if (now - slot.linkKeptAt < kLinkSeconds) return;
  slot.linkKeptAt = now;
  const LinkRow total{.meter = 0,
                      .utc = now,
                      .requests = figures.requests,
                      .answers = figures.answers,
                      .silent = figures.silent,
                      .spoiled = figures.spoiled};
  LinkRow row = total;
  row.requests -= slot.linkBefore.requests;
  row.answers -= slot.linkBefore.answers;
  row.silent -= slot.linkBefore.silent;
  row.spoiled -= slot.linkBefore.spoiled;
  slot.linkBefore = total;
  parts_.writer.Add([row, key = slot.key](Archive& archive) mutable {
    row.meter = *key;
    archive.Put(row);
  });
}

void ChannelWorker::KeepEvents() {
  for (const host::LogLine& line : session_->Events().TakeNew()) {
    // Channels may share a file; each takes its own lines.
    if (line.channel != config_.port) continue;
    parts_.journal(config_.port, line.text);
    parts_.writer.Add([station = parts_.settings.station,
                       event = EventRow{.utc = platform::UtcSeconds(), .channel = config_.port, .text = line.text}](
                          Archive& archive) { archive.Put(station, event); });
  }
}

void ChannelWorker::AfterPassWrites() {
  if (write_) {
    std::optional<host::WriteReport> report = write_->AfterPass();
    if (!report && platform::UtcSeconds() - writeBegan_ > kWriteSeconds) report = write_->GiveUp();
    if (!report) return;
    FinishWrite(*report);
  }
  const std::lock_guard lock(writeMutex_);
  if (orders_.empty()) return;
  for (const auto& slot : slots_) {
    if (slot->meter->config.name != orders_.front().meter) continue;
    const std::size_t tag = slot->meter->FindTag(orders_.front().tag);
    write_.emplace(channel_, *slot->meter, tag, orders_.front().value);
    writeBegan_ = platform::UtcSeconds();
    return;
  }
}

void ChannelWorker::FinishWrite(const host::WriteReport& report) {
  write_.reset();
  WriteOrder order;
  {
    const std::lock_guard lock(writeMutex_);
    order = std::move(orders_.front());
    orders_.pop_front();
  }
  for (const auto& slot : slots_) {
    if (slot->meter->config.name != report.meter || slot->serial.empty()) continue;
    WriteRow row{.meter = 0,
                 .tag = report.tag.id,
                 .utc = platform::UtcSeconds(),
                 .source = order.source,
                 .sent = host::ValueText(report.sent),
                 .before = host::ValueText(report.before),
                 .after = host::ValueText(report.after),
                 .outcome = host::OutcomeText(report.outcome)};
    parts_.writer.Add([row, key = slot->key](Archive& archive) mutable {
      row.meter = *key;
      archive.Put(row);
    });
  }
  if (order.done) order.done(report);
}

}  // namespace ostrel::station
