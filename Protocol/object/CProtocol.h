// The plug-in object, one per serial channel. All state of a channel stands here; the behaviour stands with its subsystem:
// a member of an interface is implemented in the folder that it belongs to, and internal operations are free functions
// that take the protocol and a meter's index.
//
// Threads: the poll thread and the host's threads. Lock order: PollLock (device table and tag lists, one poll pass),
// ProfileWalkLock (one load-profile listing, never taken by the poll thread), ExchangeLock (the line, one transaction), the
// host's tag lock (values of tags). ProfileDataLock comes last: nothing is taken or asked while it is held. A host does not
// list a profile while it holds ExchangeLock. The lock operations and TransmitAndRecieve are always called through the
// object's table, so that a derived object sees them.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <vector>

#include "Protocol/history/ArchiveRequest.h"
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

/// Meter and tag of the last profile listing; no tag before the first.
struct ProfileCacheKey {
  MeterRef meter{};
  std::uint32_t tagId = 0;
};

class CProtocol : public IProtocol, public IBrowser, public IEnumTypes {
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

  /// The meter at an index of the device table, or null. Not to be kept across a call that may change the table.
  [[nodiscard]] DeviceEntry* Device(std::uint32_t index);

  std::atomic<std::uint32_t> RefCount{0};
  ostrel::HostContext* HostContext = nullptr;
  platform::ThreadHandle PollThread = nullptr;
  std::atomic<std::uint32_t> Running{0};
  ChannelRecord Channel{};
  platform::FairSection ExchangeLock;
  platform::FairSection PollLock;
  platform::CriticalSection HostLock;
  std::array<MeterTypeEntry, kMeterTypeCount> MeterTypes;
  std::uint32_t MeterTypeCount = kMeterTypeCount;
  std::uint32_t PortOpen = 0;
  std::map<std::uint32_t, std::uint32_t> HistoryClassMap;
  std::vector<ProfileRecord> ProfileCache;
  std::map<VariantKey, VariantInfo> VariantMap;  // grows by unknown variants; guarded by ExchangeLock
  std::array<std::uint8_t, kAnswerBuffer> AnswerBuffer{};
  std::uint32_t AnswerLength = 0;
  std::uint32_t PauseAfterError = 0;  // ms
  std::uint32_t ThreadId = 0;
  HRESULT LastPortResult = 0;
  std::uint32_t EnumCursor = 0;
  /// Grows with every current-value request that is sent, so that no tag is decoded from an answer that is gone.
  std::uint64_t AnswerSerial = 0;
  /// Tags and auxiliary records of removed meters, kept until the object is destroyed.
  std::vector<CDeviceTag*> RetiredTags;
  std::vector<AuxRecord*> RetiredAux;
  /// Held for a whole walk over a load profile, its requests included, so that one walk's search does not move the meter's
  /// header address under another's records. Taken before ExchangeLock.
  platform::FairSection ProfileWalkLock;
  /// Guards ProfileCache with its owner, and the meters' profile stores and header addresses; never held across a request.
  platform::FairSection ProfileDataLock;
  /// Whose records ProfileCache holds; a record itself does not say its meter.
  ProfileCacheKey ProfileCacheOwner;

 protected:
  virtual ~CProtocol();
};

}  // namespace ostrel
