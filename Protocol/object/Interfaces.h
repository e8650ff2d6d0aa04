// The three faces of the plug-in. The order of the operations is the contract with the host: each table holds exactly
// these entries behind the three of IUnknown. BOOL-like results are 1 and 0. Nothing is thrown: what memory is too short for
// ends with the operation's failure result, and can be asked again.
#pragma once

#include <cstdint>

#include "Protocol/model/HistoryTypes.h"
#include "platform/com.h"

namespace ostrel {

class CDeviceTag;
struct ChannelRecord;
struct DeviceEntry;
struct HostContext;
struct PortSettings;

inline constexpr GUID CLSID_Protocol = {0x09590E5C, 0x2B82, 0x4C8C, {0xA6, 0xCD, 0x17, 0x56, 0xBA, 0x3A, 0x8D, 0xFF}};
inline constexpr GUID IID_IProtocol = {0x08B9F21E, 0x75E9, 0x4E6E, {0x86, 0x21, 0x55, 0xA0, 0xA6, 0xE9, 0xFF, 0x30}};
inline constexpr GUID IID_IBrowser = {0x8CB9883F, 0x0F6B, 0x48FC, {0x95, 0x00, 0xEC, 0x86, 0xDA, 0x90, 0xE3, 0x96}};
inline constexpr GUID IID_IEnumTypes = {0x8846E2AF, 0x6B7A, 0x429C, {0xBB, 0x12, 0x7F, 0x6A, 0x84, 0x3D, 0x25, 0x60}};

struct IProtocol : IUnknown {
  /// Slot 3. The channel's settings and meters; the same address for the object's whole life.
  virtual ChannelRecord* STDMETHODCALLTYPE GetChannel() = 0;
  /// Slot 4. Copies the record, which may be one of the channel's own; the new meter's index, or -1 for null or when memory is
  /// too short for the whole of it. Waits for the transaction on the line.
  virtual std::int32_t STDMETHODCALLTYPE AddDevice(const DeviceEntry* config) = 0;
  /// Slot 5. Later meters move one place forward. An index outside the table does nothing. Waits for the transaction on the line.
  virtual void STDMETHODCALLTYPE RemoveDevice(std::int32_t index) = 0;
  /// Slot 6. The tag belongs to the plug-in from here on, also when its meter is removed. Null and an index outside the table do
  /// nothing. When memory is too short for its place in the list the tag is kept, but not served.
  virtual void STDMETHODCALLTYPE AddTag(std::uint32_t device, CDeviceTag* tag) = 0;
  /// Slot 7. One archived value. Structures go by pointer in every slot, so that the bytes of arguments that the callee takes
  /// from a 32-bit stack are the same whatever compiler the host comes from. Null gives 0 with nothing written.
  virtual std::uint32_t STDMETHODCALLTYPE ReadHistoryValue(std::uint32_t meterType, const HistoryItem* item, const FILETIME* time,
                                                           HistoryValue* value) = 0;
  /// Slot 8. 2 day, 3 month, 4 year, 0 profile with its minutes in `period`, -1 otherwise.
  virtual std::int32_t STDMETHODCALLTYPE GetHistoryInterval(std::uint32_t tagId, std::uint32_t device, std::uint32_t* period) = 0;
  /// Slot 9. Records that the meter type keeps for the tag's class.
  virtual std::uint32_t STDMETHODCALLTYPE GetHistoryDepth(std::uint32_t meterType, std::uint32_t tagId) = 0;
  /// Slot 10. Record times within an interval, newest first.
  virtual std::uint32_t STDMETHODCALLTYPE GetHistoryTimestamps(std::uint32_t meterType, std::uint32_t tagId, std::uint32_t device,
                                                               FILETIME* start, FILETIME* end, TimestampList* list) = 0;
  /// Slot 11. Whether a record stands at exactly that time.
  virtual std::uint32_t STDMETHODCALLTYPE CheckHistoryTimestamp(std::uint32_t meterType, std::uint32_t tagId,
                                                                std::uint32_t device, FILETIME* time) = 0;
  /// Slot 12. Ends the poll thread and waits for it. Slots 12, 13 and 15 take turns, so none of them is called while the caller
  /// holds PollLock or ExchangeLock, nor by the poll thread.
  virtual std::uint32_t STDMETHODCALLTYPE Stop() = 0;
  /// Slot 13. Starts the poll thread, also when one that was asked to stop has ended meanwhile. 0 when the system has no thread
  /// left.
  virtual std::uint32_t STDMETHODCALLTYPE Start() = 0;
  /// Slot 14. Asks the poll thread to end, without waiting.
  virtual std::uint32_t STDMETHODCALLTYPE SignalStop() = 0;
  /// Slot 15. Settings and context; ends polling and closes an open port first.
  virtual std::uint32_t STDMETHODCALLTYPE SetPortSettings(HostContext* context, const PortSettings* settings) = 0;
  /// Slots 16, 17. The serial line, one transaction at a time.
  virtual std::uint32_t STDMETHODCALLTYPE LockExchange() = 0;
  virtual std::uint32_t STDMETHODCALLTYPE UnlockExchange() = 0;
  /// Slots 18, 19. The host's own.
  virtual std::uint32_t STDMETHODCALLTYPE Lock() = 0;
  virtual std::uint32_t STDMETHODCALLTYPE Unlock() = 0;
  /// Slots 20, 21. The device table and tag lists, for one poll pass; taken before ExchangeLock.
  virtual std::uint32_t STDMETHODCALLTYPE LockPoll() = 0;
  virtual std::uint32_t STDMETHODCALLTYPE UnlockPoll() = 0;
  /// Slot 22. Sends a request (offset 0) or reads on (offset > 0); `*count` is bytes wanted, then bytes of this call. Takes no
  /// lock: the caller holds ExchangeLock. 1 when at least one byte came.
  virtual std::uint32_t STDMETHODCALLTYPE TransmitAndRecieve(const std::uint8_t* request, std::uint32_t requestLength,
                                                             std::uint8_t* answer, std::uint32_t* count,
                                                             std::uint32_t offset) = 0;
  /// Slot 23. Whether the meter's failure hold has run out. Waits for the transaction on the line.
  virtual std::uint32_t STDMETHODCALLTYPE CanPollDevice(std::uint32_t device) = 0;

 protected:
  ~IProtocol() = default;
};

inline constexpr std::uint32_t kBranchDa = 0;
inline constexpr std::uint32_t kBranchHda = 1;
inline constexpr std::size_t kNameBuffer = 260;

struct IBrowser : IUnknown {
  /// Slot 3. Name of a tag for a meter type, code page 1251, into 260 bytes. 0 ends the walk over a branch; 1 with an empty name
  /// is an id that the type does not have.
  virtual std::uint32_t STDMETHODCALLTYPE GetTagName(std::uint32_t id, std::uint32_t meterType, std::uint32_t branch,
                                                     char* buffer, std::uint32_t unused) = 0;
  /// Slot 4. 20000 for current data, 40000 for history, 0 for any other branch.
  virtual std::uint32_t STDMETHODCALLTYPE GetFirstTagId(std::uint32_t branch) = 0;
  /// Slot 5. Does nothing, 0.
  virtual std::uint32_t STDMETHODCALLTYPE Reserved(std::uint32_t first, std::uint32_t second) = 0;
  /// Slot 6. By index within the branch: ten numbers of a current-data tag, the data type of a history tag. Always 1.
  virtual std::uint32_t STDMETHODCALLTYPE GetTagDescriptor(std::uint32_t index, std::uint32_t branch, std::uint32_t unused,
                                                           std::uint32_t* output) = 0;
  /// Slot 7. Russian description of a current-data tag by index, into 260 bytes. 0 with an empty text when there is none.
  virtual std::uint32_t STDMETHODCALLTYPE GetTagDescription(std::uint32_t index, std::uint32_t unused, char* buffer) = 0;

 protected:
  ~IBrowser() = default;
};

/// One meter type as Next gives it; bytes 76 to 83 are left alone.
struct MeterTypeRecord {
  GUID ClassId;
  char DisplayName[30];
  char TypeName[30];
  std::uint8_t unwritten_[8];
  std::uint32_t TypeId;
};
static_assert(sizeof(MeterTypeRecord) == 88 && offsetof(MeterTypeRecord, DisplayName) == 16 &&
              offsetof(MeterTypeRecord, TypeName) == 46 && offsetof(MeterTypeRecord, TypeId) == 84);

struct IEnumTypes : IUnknown {
  /// Slot 3. Number of types; S_FALSE for null.
  virtual HRESULT STDMETHODCALLTYPE GetCount(std::uint32_t* count) = 0;
  /// Slot 4. The type at the cursor, which moves on; S_FALSE at the end or for null, with nothing written or moved.
  virtual HRESULT STDMETHODCALLTYPE Next(MeterTypeRecord* record) = 0;
  /// Slot 5. Back to the first type.
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;

 protected:
  ~IEnumTypes() = default;
};

}  // namespace ostrel
