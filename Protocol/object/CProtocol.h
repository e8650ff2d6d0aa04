// The plug-in object, one per serial channel: the operations that the host calls, each a guarded call of the floor that it
// belongs to. The state of a channel stands in its bases, floor by floor: the line (Line), its meters (Meters), the poll
// thread (PolledChannel), the records of past listings (HistoryState).
//
// Threads: the poll thread and the host's threads. Lock order: ThreadLock (the poll thread's handle, never taken by that
// thread), PollLock (device table and tag lists, one poll pass), ProfileWalkLock (one load-profile listing, never taken by the
// poll thread), ExchangeLock (the line, one transaction), the host's tag lock (values of tags). ProfileDataLock comes last:
// nothing is taken or asked while it is held. A host does not list a profile while it holds ExchangeLock. The lock operations and
// TransmitAndRecieve are always called through the object's table, so that a derived object sees them.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <vector>

#include "Protocol/acquisition/PolledChannel.h"
#include "Protocol/history/HistoryState.h"
#include "Protocol/link/ChannelRecord.h"
#include "Protocol/link/HostContext.h"
#include "Protocol/model/VariantMap.h"
#include "Protocol/object/Interfaces.h"
#include "platform/critical_section.h"
#include "platform/thread.h"

namespace ostrel {

struct MeterTypeEntry {
  const char* DisplayName;  // code page 1251
  const char* TypeName;
  std::uint32_t TypeId;
};

inline constexpr std::uint32_t kMeterTypeCount = 9;

/// What a meter owns and is not freed with its record.
struct Belongings {
  HostVector<CDeviceTag*> Tags;
  HostVector<AuxRecord*> AuxList;
};

class CProtocol : public IProtocol, public IBrowser, public IEnumTypes, public PolledChannel, public HistoryState {
 public:
  CProtocol();
  CProtocol(const CProtocol&) = delete;
  CProtocol& operator=(const CProtocol&) = delete;

  // IUnknown of all three faces
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // IProtocol
  ChannelRecord* STDMETHODCALLTYPE GetChannel() override;
  std::int32_t STDMETHODCALLTYPE AddDevice(const DeviceEntry* config) override;
  void STDMETHODCALLTYPE RemoveDevice(std::int32_t index) override;
  void STDMETHODCALLTYPE AddTag(std::uint32_t device, CDeviceTag* tag) override;
  std::uint32_t STDMETHODCALLTYPE ReadHistoryValue(std::uint32_t meterType, const HistoryItem* item, const FILETIME* time,
                                                   HistoryValue* value) override;
  std::int32_t STDMETHODCALLTYPE GetHistoryInterval(std::uint32_t tagId, std::uint32_t device, std::uint32_t* period) override;
  std::uint32_t STDMETHODCALLTYPE GetHistoryDepth(std::uint32_t meterType, std::uint32_t tagId) override;
  std::uint32_t STDMETHODCALLTYPE GetHistoryTimestamps(std::uint32_t meterType, std::uint32_t tagId, std::uint32_t device,
                                                       FILETIME* start, FILETIME* end, TimestampList* list) override;
  std::uint32_t STDMETHODCALLTYPE CheckHistoryTimestamp(std::uint32_t meterType, std::uint32_t tagId, std::uint32_t device,
                                                        FILETIME* time) override;
  std::uint32_t STDMETHODCALLTYPE Stop() override;
  std::uint32_t STDMETHODCALLTYPE Start() override;
  std::uint32_t STDMETHODCALLTYPE SignalStop() override;
  std::uint32_t STDMETHODCALLTYPE SetPortSettings(ostrel::HostContext* context, const PortSettings* settings) override;
  std::uint32_t STDMETHODCALLTYPE LockExchange() override;
  std::uint32_t STDMETHODCALLTYPE UnlockExchange() override;
  std::uint32_t STDMETHODCALLTYPE Lock() override;
  std::uint32_t STDMETHODCALLTYPE Unlock() override;
  std::uint32_t STDMETHODCALLTYPE LockPoll() override;
  std::uint32_t STDMETHODCALLTYPE UnlockPoll() override;
  std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                     std::uint8_t* answer, std::uint32_t* count, std::uint32_t offset) override;
  std::uint32_t STDMETHODCALLTYPE CanPollDevice(std::uint32_t device) override;

 protected:
  // Its place decides the table: hosts expect the entry directly behind slot 23, before what the other faces bring.
  virtual ~CProtocol();

 public:
  // IBrowser
  std::uint32_t STDMETHODCALLTYPE GetTagName(std::uint32_t id, std::uint32_t meterType, std::uint32_t branch, char* buffer,
                                             std::uint32_t unused) override;
  std::uint32_t STDMETHODCALLTYPE GetFirstTagId(std::uint32_t branch) override;
  std::uint32_t STDMETHODCALLTYPE Reserved(std::uint32_t first, std::uint32_t second) override;
  std::uint32_t STDMETHODCALLTYPE GetTagDescriptor(std::uint32_t index, std::uint32_t branch, std::uint32_t unused,
                                                   std::uint32_t* output) override;
  std::uint32_t STDMETHODCALLTYPE GetTagDescription(std::uint32_t index, std::uint32_t unused, char* buffer) override;

  // IEnumTypes
  HRESULT STDMETHODCALLTYPE GetCount(std::uint32_t* count) override;
  HRESULT STDMETHODCALLTYPE Next(MeterTypeRecord* record) override;
  HRESULT STDMETHODCALLTYPE Reset() override;

  std::atomic<std::uint32_t> RefCount{0};
  platform::FairSection ExchangeLock;
  platform::FairSection PollLock;
  platform::CriticalSection HostLock;
  std::array<MeterTypeEntry, kMeterTypeCount> MeterTypes;
  std::uint32_t MeterTypeCount = kMeterTypeCount;
  std::uint32_t EnumCursor = 0;
  /// What removed meters leave behind, kept until the object is destroyed.
  std::vector<Belongings> Retired;
  /// Tags that no list had room for when memory was short, each with the next one in its unused second text.
  CDeviceTag* UnlistedTags = nullptr;
};

}  // namespace ostrel
