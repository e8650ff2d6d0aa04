// Identity, lifetime and locks of the plug-in object.
#include "Protocol/object/CProtocol.h"

#include <set>

#include "Protocol/link/Port.h"
#include "Protocol/model/TagCatalogue.h"
#include "Protocol/object/MeterTypes.h"

namespace ostrel {
namespace {

/// A tag may stand in several lists and several times in one; it is ended once.
void CollectTags(const DeviceEntry& entry, std::set<CDeviceTag*>& tags) { tags.insert(entry.Tags.begin(), entry.Tags.end()); }

void CollectAux(const DeviceEntry& entry, std::set<AuxRecord*>& records) {
  records.insert(entry.AuxList.begin(), entry.AuxList.end());
}

void DestroyTags(CProtocol& protocol) {
  std::set<CDeviceTag*> tags(protocol.RetiredTags.begin(), protocol.RetiredTags.end());
  for (DeviceEntry& entry : protocol.Channel.Devices) {
    CollectTags(entry, tags);
    entry.Tags.Clear();
  }
  for (CDeviceTag* tag : tags) tag->Destroy(1);
}

void DestroyAux(CProtocol& protocol) {
  std::set<AuxRecord*> records(protocol.RetiredAux.begin(), protocol.RetiredAux.end());
  for (DeviceEntry& entry : protocol.Channel.Devices) {
    CollectAux(entry, records);
    entry.AuxList.Clear();
  }
  for (AuxRecord* record : records) {
    if (record == nullptr) continue;
    platform::FreeString(record->Text);
    platform::TaskFree(record);
  }
}

}  // namespace

CProtocol::CProtocol() : MeterTypes(MakeMeterTypes()), HistoryClassMap(MakeHistoryClassMap()), VariantMap(MakeVariantMap()) {}

CProtocol::~CProtocol() {
  CProtocol::Stop();
  ClosePort(*this);
  DestroyTags(*this);
  DestroyAux(*this);
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

}  // namespace ostrel
