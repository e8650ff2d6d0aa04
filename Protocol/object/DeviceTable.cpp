// The meters of a channel and the tags handed to them. A host that changes the table while the poll thread runs brackets the
// change with LockPoll and UnlockPoll. What moves records takes the locks under which history operations on other threads look
// at them, so that none of those reads a record that is going.
#include <new>

#include "Protocol/link/LineGuard.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

class [[nodiscard]] TableChange {
 public:
  explicit TableChange(CProtocol& protocol) : line_(protocol), records_(protocol.ProfileDataLock) {}

 private:
  LineGuard line_;
  platform::CriticalSectionGuard<platform::FairSection> records_;
};

}  // namespace

std::int32_t STDMETHODCALLTYPE CProtocol::AddDevice(const DeviceEntry* config) {
  const TableChange change(*this);
  if (config == nullptr || !Channel.Devices.Append(*config)) return -1;
  return static_cast<std::int32_t>(Channel.Devices.Size() - 1);
}

void STDMETHODCALLTYPE CProtocol::RemoveDevice(std::int32_t index) {
  if (index < 0) return;
  const TableChange change(*this);
  DeviceEntry* const entry = Device(static_cast<std::uint32_t>(index));
  if (entry == nullptr) return;
  // Hosts never free a tag that they handed over, so those of a removed meter live as long as this object.
  RetiredTags.insert(RetiredTags.end(), entry->Tags.begin(), entry->Tags.end());
  RetiredAux.insert(RetiredAux.end(), entry->AuxList.begin(), entry->AuxList.end());
  Channel.Devices.RemoveAt(static_cast<std::uint32_t>(index));
}

void STDMETHODCALLTYPE CProtocol::AddTag(std::uint32_t device, CDeviceTag* tag) {
  if (tag == nullptr) return;
  DeviceEntry* const entry = Device(device);
  if (entry == nullptr) return;
  entry->Tags.Append(tag);
}

}  // namespace ostrel
