// The poll thread: one pass per poll period over every meter of the channel, with each meter's link bookkeeping.
#include <utility>

#include "Protocol/acquisition/DeviceCycle.h"
#include "Protocol/acquisition/TagMarking.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/link/LinkState.h"
#include "Protocol/link/Port.h"
#include "Protocol/model/Guarded.h"
#include "Protocol/object/CProtocol.h"
#include "platform/clock.h"

namespace ostrel {
namespace {

constexpr std::uint32_t kStepMs = 10;
constexpr std::uint32_t kWaitStepMs = 100;

bool ServeDevice(CProtocol& protocol, std::uint32_t device) {
  if (LoadFlag(protocol.Channel.ExchangeEnabled) == 0 || protocol.Device(device)->Tags.Empty()) return false;
  if (Guarded(0U, [&] { return RunDeviceCycle(protocol, device); }) != 0) return true;
  if (DeviceEntry* const entry = protocol.Device(device)) StoreFlag(entry->InfoRead, 0);
  return false;
}

void RestoreLink(CProtocol& protocol, DeviceEntry& entry) {
  if (entry.LinkState == kLinkLost) {
    StoreFlag(entry.InfoRead, 0);
    ReportEvent(protocol, kEventLinkRestored, entry.Address);
  }
  entry.LinkState = kLinked;
}

void PollDevice(CProtocol& protocol, std::uint32_t device) {
  const bool served = ServeDevice(protocol, device);
  DeviceEntry* const entry = protocol.Device(device);
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
    RestoreLink(protocol, *entry);
  }
  platform::Sleep(kStepMs);
}

void RunPass(CProtocol& protocol) {
  protocol.LockPoll();
  for (std::uint32_t device = 0; device < protocol.Channel.Devices.Size() && protocol.Running != 0; ++device) {
    PollDevice(protocol, device);
  }
  const bool idle = protocol.Channel.Devices.Empty();
  protocol.UnlockPoll();
  if (idle) platform::Sleep(kStepMs);
}

void PollUntilStopped(CProtocol& protocol) {
  TickTimer pass{};
  pass.SetPeriod(true, protocol.Channel.PollPeriod * 1000);
  while (protocol.Running != 0) {
    platform::Sleep(kStepMs);
    pass.Restart();
    RunPass(protocol);
    while (!pass.Expired() && protocol.Running != 0) platform::Sleep(kWaitStepMs);
  }
  const LineGuard guard(protocol);
  ClosePort(protocol);
}

/// A Start that comes while the thread ends must not find a thread that polls nothing. The thread says that it has ended, then
/// looks at Running; Start sets Running, then takes that word. Of the two, the one that gets it goes on with polling.
bool EndsNow(CProtocol& protocol) {
  protocol.PollEnded = 1;
  return protocol.Running == 0 || protocol.PollEnded.exchange(0) == 0;
}

std::uint32_t PollProcedure(void* argument) {
  CProtocol& protocol = *static_cast<CProtocol*>(argument);
  do {
    PollUntilStopped(protocol);
  } while (!EndsNow(protocol));
  return 1;
}

using ThreadGuard = platform::CriticalSectionGuard<platform::FairSection>;

/// The caller holds ThreadLock.
void JoinPollThread(CProtocol& protocol) {
  platform::JoinThread(std::exchange(protocol.PollThread, nullptr));
  protocol.PollEnded = 0;
}

}  // namespace

std::uint32_t STDMETHODCALLTYPE CProtocol::Stop() {
  const ThreadGuard guard(ThreadLock);
  SignalStop();
  JoinPollThread(*this);
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::Start() {
  const ThreadGuard guard(ThreadLock);
  Running = 1;
  if (PollThread != nullptr && PollEnded.exchange(0) == 0) return 1;
  JoinPollThread(*this);
  PollThread = platform::StartThread(PollProcedure, this, ThreadId);
  return PollThread != nullptr ? 1 : 0;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::SignalStop() {
  Running = 0;
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::CanPollDevice(std::uint32_t device) {
  const LineGuard guard(*this);
  DeviceEntry* const entry = Device(device);
  if (entry == nullptr) return 0;
  if (LoadFlag(entry->FailHold) == 0) return 1;
  if (!entry->FailHoldTimer.Expired()) return 0;
  StoreFlag(entry->FailHold, 0);
  return 1;
}

}  // namespace ostrel
