// The filling of gaps beside polling: when to look, what is most urgent, and how much of the line's time it may take.
#include <fmt/format.h>

#include <chrono>

#include "host/session/HistoryInterval.h"
#include "platform/clock.h"
#include "station/collect/ChannelWorker.h"
#include "station/collect/Completeness.h"

namespace ostrel::station {
namespace {

constexpr double kIdleSeconds = 0.5;
constexpr std::int64_t kHour = 3600;
/// The pass that was under way when a portion had been read may have read the serial number before it.
constexpr std::uint32_t kConfirmations = 2;

}  // namespace

bool ChannelWorker::Pause(double seconds) {
  std::unique_lock lock(stopMutex_);
  return stopped_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return stopping_; });
}

std::int64_t ChannelWorker::MeterNow(const Slot& slot) const {
  return host::ComputersWallTime() + figures_->Of(slot.meter->config.address).clockOffsetSeconds.value_or(0);
}

void ChannelWorker::FillLoop() {
  while (!Pause(0)) {
    bool worked = false;
    try {
      KeepConfirmed();
      BeginChecks();
      const std::uint32_t start = platform::TickCount();
      worked = FillOnce();
      // Current values come first: the rest of the line's time is theirs.
      const double took = (platform::TickCount() - start) / 1000.0;
      if (worked && Pause(took * (100.0 / parts_.settings.lineShare - 1))) return;
    } catch (const DatabaseError&) {
      // The writer says what is wrong; what is missing stays missing until it is right.
    }
    if (!worked && Pause(kIdleSeconds)) return;
  }
}

void ChannelWorker::BeginChecks() {
  const std::int64_t now = platform::UtcSeconds();
  const bool hourly = now - checkedAt_ >= kHour || now < checkedAt_;
  if (hourly) checkedAt_ = now;
  for (const auto& slot : slots_) {
    if (hourly) slot->checkDue = true;
    if (!slot->checkDue || !slot->confirmed || *slot->key == 0) continue;
    slot->checkDue = false;
    slot->filled = false;
    Readers::Lease archive(parts_.readers);
    if (!slot->fill->BeginCheck(*archive, *slot->key, MeterNow(*slot))) slot->checkDue = true;
  }
}

std::optional<std::pair<std::size_t, Portion>> ChannelWorker::MostUrgent() {
  std::optional<std::pair<std::size_t, Portion>> best;
  Readers::Lease archive(parts_.readers);
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    Slot& slot = *slots_[i];
    if (slot.filled || slot.checkDue || !slot.confirmed || *slot.key == 0) continue;
    const std::optional<Portion> portion = slot.fill->Next(*archive, *slot.key, MeterNow(slot));
    slot.filled = !portion && !slot.fill->Busy();
    ShowFill(slot, *archive, portion ? &*portion : nullptr);
    if (portion && (!best || portion->deadline < best->second.deadline)) best.emplace(i, *portion);
  }
  return best;
}

bool ChannelWorker::FillOnce() {
  const auto urgent = MostUrgent();
  if (!urgent) return false;
  Slot& slot = *slots_[urgent->first];
  const std::uint32_t start = platform::TickCount();
  FillResult result = slot.fill->Read(urgent->second, MeterNow(slot));
  if (!result.records.empty()) {
    secondsPerRecord_ = (platform::TickCount() - start) / 1000.0 / static_cast<double>(result.records.size());
  }
  // What a silent meter did not say is asked for when it is back.
  if (!result.answered) slot.checkDue = true;
  if (result.records.empty() || result.portion.kind == PortionKind::Probe) {
    slot.fill->Kept(result);
    return true;
  }
  pending_.push_back({.slot = urgent->first, .confirmations = slot.confirmations + kConfirmations, .result = std::move(result)});
  return true;
}

void ChannelWorker::KeepConfirmed() {
  std::vector<Pending> kept;
  std::deque<Pending> waiting;
  for (Pending& pending : pending_) {
    const Slot& slot = *slots_[pending.slot];
    if (!slot.confirmed) {
      slot.fill->Dropped(pending.result);
    } else if (slot.confirmations < pending.confirmations) {
      waiting.push_back(std::move(pending));
    } else {
      kept.push_back(std::move(pending));
    }
  }
  pending_ = std::move(waiting);
  for (const Pending& pending : kept) {
    Slot& slot = *slots_[pending.slot];
    parts_.writer.Add(
        [&forward = parts_.forward, meter = slot.meter->config.name, key = slot.key, result = pending.result](Archive& archive) {
          Keep(archive, *key, result, [&](const StoredRecord& record) {
            if (forward)
              forward(archive, {.meter = meter,
                                .tag = result.tag,
                                .name = result.name,
                                .unit = result.unit,
                                .current = nullptr,
                                .record = &record});
          });
        });
  }
  if (kept.empty()) return;
  // What is missing is worked out from what is kept.
  while (!parts_.writer.Flush(1000)) {
    if (Pause(0)) return;
  }
  for (const Pending& pending : kept) slots_[pending.slot]->fill->Kept(pending.result);
}

void ChannelWorker::ShowFill(Slot& slot, Archive& archive, const Portion* portion) {
  constexpr std::int64_t kDays = 30 * 86400;
  FillState state;
  state.completeness = slot.completeness;
  const std::int64_t now = host::ComputersWallTime();
  if (portion != nullptr && !portion->idle) {
    state.missing = portion->missing;
    state.secondsLeft = static_cast<double>(portion->missing) * secondsPerRecord_ * 100 / parts_.settings.lineShare;
    state.doing = portion->kind == PortionKind::Fetch ? "fetches from " + host::WallTimeText(portion->from)
                                                      : "looks where the meter's memory begins";
  } else if (!slot.fill->Busy() && (now - slot.countedAt > kHour / 2 || now < slot.countedAt)) {
    MeterRow meter;
    meter.key = *slot.key;
    slot.completeness = state.completeness = Share(CountDays(archive, meter, {.from = now - kDays, .to = now}));
    slot.countedAt = now;
  }
  parts_.live.SetFill(slot.meter->config.name, state);
}

}  // namespace ostrel::station
