// Identity, lifetime and locks of the plug-in object.
#include "Protocol/object/CProtocol.h"

#include <utility>

#include "Protocol/acquisition/PollThread.h"
#include "Protocol/history/HistoryOperations.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/link/Port.h"
#include "Protocol/link/Transmit.h"
#include "Protocol/model/Guarded.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/MeterTypes.h"

namespace ostrel {
namespace {

// Every meter's belongings in the order of the table, then what removed meters left behind.

template <class Visit>
void ForEachOwner(CProtocol& protocol, Visit visit) {
  for (DeviceEntry& entry : protocol.Channel.Devices) visit(entry);
  for (Belongings& left : protocol.Retired) visit(left);
}

/// Leaves a thing only in the first of the places where it stands, since it is ended once. `mark` is a word of the thing
/// that nobody needs any more.
template <class Thing>
void LeaveFirst(HostVector<Thing*>& list, std::uint32_t Thing::*mark) {
  for (Thing*& thing : list) {
    if (thing == nullptr) continue;
    const bool seen = std::exchange(thing->*mark, 1U) != 0;
    if (seen) thing = nullptr;
  }
}

template <class Thing>
void ClearMarks(HostVector<Thing*>& list, std::uint32_t Thing::*mark) {
  for (Thing* thing : list) {
    if (thing != nullptr) thing->*mark = 0;
  }
}

void LeaveEachOnce(CProtocol& protocol) {
  ForEachOwner(protocol, [](auto& owner) {
    ClearMarks(owner.Tags, &CDeviceTag::Updated);
    ClearMarks(owner.AuxList, &AuxRecord::First);
  });
  ForEachOwner(protocol, [](auto& owner) {
    LeaveFirst(owner.Tags, &CDeviceTag::Updated);
    LeaveFirst(owner.AuxList, &AuxRecord::First);
  });
}

void Destroy(CDeviceTag* tag) {
  if (tag != nullptr) tag->Destroy(1);
}

void Destroy(AuxRecord* record) {
  if (record == nullptr) return;
  platform::FreeString(record->Text);
  platform::TaskFree(record);
}

template <class Thing>
void DestroyAll(HostVector<Thing*>& list) {
  for (Thing*& thing : list) Destroy(std::exchange(thing, nullptr));
  list.Clear();
}

CDeviceTag* TakeNext(CDeviceTag& tag) { return reinterpret_cast<CDeviceTag*>(std::exchange(tag.SecondText, nullptr)); }

/// A mark says that the tag stands in a list as well.
void DestroyUnlisted(CProtocol& protocol) {
  while (CDeviceTag* const tag = protocol.UnlistedTags) {
    protocol.UnlistedTags = TakeNext(*tag);
    if (tag->Updated == 0) tag->Destroy(1);
  }
}

/// Asks for no memory: an object is also ended because there is none.
void DestroyBelongings(CProtocol& protocol) {
  LeaveEachOnce(protocol);
  DestroyUnlisted(protocol);
  ForEachOwner(protocol, [](auto& owner) {
    DestroyAll(owner.Tags);
    DestroyAll(owner.AuxList);
  });
}

}  // namespace

CProtocol::CProtocol() : MeterTypes(MakeMeterTypes()) {}

CProtocol::~CProtocol() {
  CProtocol::Stop();
  ClosePort(*this);
  DestroyBelongings(*this);
}

HRESULT STDMETHODCALLTYPE CProtocol::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (platform::SameGuid(iid, IID_IUnknown) || platform::SameGuid(iid, IID_IProtocol)) {
    *object = static_cast<IProtocol*>(this);
  } else if (platform::SameGuid(iid, IID_IBrowser)) {
    *object = static_cast<IBrowser*>(this);
  } else if (platform::SameGuid(iid, IID_IEnumTypes)) {
    *object = static_cast<IEnumTypes*>(this);
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG STDMETHODCALLTYPE CProtocol::AddRef() { return ++RefCount; }

ULONG STDMETHODCALLTYPE CProtocol::Release() {
  const std::uint32_t left = --RefCount;
  if (left == 0) delete this;
  return left;
}

ChannelRecord* STDMETHODCALLTYPE CProtocol::GetChannel() { return &Channel; }

std::uint32_t STDMETHODCALLTYPE CProtocol::LockExchange() {
  ExchangeLock.Enter();
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::UnlockExchange() {
  ExchangeLock.Leave();
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::Lock() {
  HostLock.Enter();
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::Unlock() {
  HostLock.Leave();
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::LockPoll() {
  PollLock.Enter();
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::UnlockPoll() {
  PollLock.Leave();
  return 1;
}

// A Start of another thread waits for the new settings.
std::uint32_t STDMETHODCALLTYPE CProtocol::SetPortSettings(ostrel::HostContext* context, const PortSettings* settings) {
  if (settings == nullptr) return 0;
  const platform::CriticalSectionGuard thread(ThreadLock);
  Stop();
  const LineGuard line(*this);
  ApplyPortSettings(*this, context, *settings);
  AnswerBuffer.fill(0);
  AnswerLength = 0;
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                              std::uint8_t* answer, std::uint32_t* count, std::uint32_t offset) {
  return Guarded(0U, [&] { return Transmit(*this, request, requestLength, answer, count, offset); });
}

std::uint32_t STDMETHODCALLTYPE CProtocol::Stop() {
  StopPolling(*this);
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::Start() {
  return Guarded(0U, [&] { return StartPolling(*this); });
}

std::uint32_t STDMETHODCALLTYPE CProtocol::SignalStop() {
  Running = 0;
  return 1;
}

std::uint32_t STDMETHODCALLTYPE CProtocol::CanPollDevice(std::uint32_t device) { return EndFailureHold(*this, device); }

std::uint32_t STDMETHODCALLTYPE CProtocol::ReadHistoryValue(std::uint32_t meterType, const HistoryItem* item,
                                                            const FILETIME* time, HistoryValue* value) {
  if (item == nullptr || time == nullptr || value == nullptr) return 0;
  return Guarded(0U, [&] { return ReadArchivedValue(*this, *this, meterType, *item, *time, *value); });
}

std::int32_t STDMETHODCALLTYPE CProtocol::GetHistoryInterval(std::uint32_t tagId, std::uint32_t device, std::uint32_t* period) {
  return Guarded(-1, [&] { return IntervalOf(*this, *this, tagId, device, period); });
}

std::uint32_t STDMETHODCALLTYPE CProtocol::GetHistoryDepth(std::uint32_t meterType, std::uint32_t tagId) {
  return DepthOf(*this, meterType, tagId);
}

std::uint32_t STDMETHODCALLTYPE CProtocol::GetHistoryTimestamps(std::uint32_t meterType, std::uint32_t tagId,
                                                                std::uint32_t device, FILETIME* start, FILETIME* end,
                                                                TimestampList* list) {
  if (start == nullptr || end == nullptr || list == nullptr) return 0;
  return Guarded(0U, [&] { return ListRecordTimes(*this, *this, meterType, tagId, device, *start, *end, *list); });
}

std::uint32_t STDMETHODCALLTYPE CProtocol::CheckHistoryTimestamp(std::uint32_t meterType, std::uint32_t tagId,
                                                                 std::uint32_t device, FILETIME* time) {
  if (time == nullptr) return 0;
  return Guarded(0U, [&] { return CheckRecordTime(*this, *this, meterType, tagId, device, *time); });
}

}  // namespace ostrel
