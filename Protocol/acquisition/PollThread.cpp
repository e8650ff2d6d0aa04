#include "Protocol/acquisition/PollThread.h"

#include <utility>

#include "Protocol/acquisition/DeviceCycle.h"
#include "Protocol/acquisition/PolledChannel.h"
#include "Protocol/acquisition/TagMarking.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/link/Port.h"
#include "Protocol/model/Guarded.h"
#include "platform/clock.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kStepMs = 10;
constexpr std::uint32_t kWaitStepMs = 100;

bool ServeDevice(PolledChannel& channel, std::uint32_t device) {
  if (LoadFlag(channel.Channel.ExchangeEnabled) == 0 || channel.Device(device)->Tags.Empty()) return false;
  if (Guarded(0U, [&] { return RunDeviceCycle(channel, device); }) != 0) return true;
  if (DeviceEntry* const entry = channel.Device(device)) StoreFlag(entry->InfoRead, 0);
  return false;
}

void RestoreLink(PolledChannel& channel, DeviceEntry& entry) {
  if (entry.LinkState == kLinkLost) {
    StoreFlag(entry.InfoRead, 0);
    ReportEvent(channel, kEventLinkRestored, entry.Address);
  }
  entry.LinkState = kLinked;
}

void PollDevice(PolledChannel& channel, std::uint32_t device) {
  const bool served = ServeDevice(channel, device);
  DeviceEntry* const entry = channel.Device(device);
  if (entry == nullptr) return;
  if (!served) {
    entry->LinkState = kLinkLost;
    MarkLost(*entry);
  } else if (LoadFlag(entry->ExchangeOn) == 0) {
    MarkSwitchedOff(*entry);
    // Always: what the meter has been set to while nobody asked it is not known.
    StoreFlag(entry->InfoRead, 0);
    return;
  } else {
    RestoreLink(channel, *entry);
  }
  platform::Sleep(kStepMs);
}

void RunPass(PolledChannel& channel) {
  channel.LockPoll();
  for (std::uint32_t device = 0; device < channel.Channel.Devices.Size() && channel.Running != 0; ++device) {
    PollDevice(channel, device);
  }
  const bool idle = channel.Channel.Devices.Empty();
  channel.UnlockPoll();
  if (idle) platform::Sleep(kStepMs);
}

void PollUntilStopped(PolledChannel& channel) {
  TickTimer pass{};
  pass.SetPeriod(true, channel.Channel.PollPeriod * 1000);
  while (channel.Running != 0) {
    platform::Sleep(kStepMs);
    pass.Restart();
    RunPass(channel);
    while (!pass.Expired() && channel.Running != 0) platform::Sleep(kWaitStepMs);
  }
  const LineGuard guard(channel);
  ClosePort(channel);
}

/// A Start that comes while the thread ends must not find a thread that polls nothing. The thread says that it has ended, then
/// looks at Running; Start sets Running, then takes that word. Of the two, the one that gets it goes on with polling.
bool EndsNow(PolledChannel& channel) {
  channel.PollEnded = 1;
  return channel.Running == 0 || channel.PollEnded.exchange(0) == 0;
}

std::uint32_t PollProcedure(void* argument) {
  PolledChannel& channel = *static_cast<PolledChannel*>(argument);
  do {
    PollUntilStopped(channel);
  } while (!EndsNow(channel));
  return 1;
}

using ThreadGuard = platform::CriticalSectionGuard<platform::FairSection>;

/// The caller holds ThreadLock.
void JoinPollThread(PolledChannel& channel) {
  platform::JoinThread(std::exchange(channel.PollThread, nullptr));
  channel.PollEnded = 0;
}

}  // namespace

void StopPolling(PolledChannel& channel) {
  const ThreadGuard guard(channel.ThreadLock);
  channel.Running = 0;
  JoinPollThread(channel);
}

std::uint32_t StartPolling(PolledChannel& channel) {
  const ThreadGuard guard(channel.ThreadLock);
  channel.Running = 1;
  if (channel.PollThread != nullptr && channel.PollEnded.exchange(0) == 0) return 1;
  JoinPollThread(channel);
  channel.PollThread = platform::StartThread(PollProcedure, &channel, channel.ThreadId);
  return channel.PollThread != nullptr ? 1 : 0;
}

std::uint32_t EndFailureHold(PolledChannel& channel, std::uint32_t device) {
  const LineGuard guard(channel);
  DeviceEntry* const entry = channel.Device(device);
  if (entry == nullptr) return 0;
  if (LoadFlag(entry->FailHold) == 0) return 1;
  if (!entry->FailHoldTimer.Expired()) return 0;
  StoreFlag(entry->FailHold, 0);
  return 1;
}

}  // namespace ostrel
