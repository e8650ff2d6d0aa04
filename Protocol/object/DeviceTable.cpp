// The meters of a channel and the tags handed to them. A host that changes the table while the poll thread runs brackets the
// change with LockPoll and UnlockPoll. What moves records takes the locks under which history operations on other threads look
// at them, so that none of those reads a record that is going.
#include <algorithm>
#include <utility>

#include "Protocol/link/LineGuard.h"
#include "Protocol/model/Guarded.h"
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

/// Asked without the line, for which a caller with a bad index would wait in vain.
bool IsListed(CProtocol& protocol, std::uint32_t device) {
  const platform::CriticalSectionGuard guard(protocol.ProfileDataLock);
  return protocol.Device(device) != nullptr;
}

/// A container whose copy found no memory is shorter than what it was copied from.
bool IsWhole(const DeviceEntry& copy, const DeviceEntry& original) {
  return copy.Tags.Size() == original.Tags.Size() && copy.AuxList.Size() == original.AuxList.Size() &&
         copy.ProfileStore1.Size() == original.ProfileStore1.Size() &&
         copy.ProfileStore2.Size() == original.ProfileStore2.Size() && copy.ProfileStore3.Size() == original.ProfileStore3.Size();
}

/// Hosts fill the lists of their records themselves; nobody who walks them should have to ask.
template <class Thing>
void DropNulls(HostVector<Thing*>& list) {
  for (std::uint32_t i = list.Size(); i-- > 0;) {
    if (list[i] == nullptr) list.RemoveAt(i);
  }
}

void Retire(Belongings& left, DeviceEntry& entry) {
  left.Tags = std::move(entry.Tags);
  left.AuxList = std::move(entry.AuxList);
}

/// A tag that once found no room stays as it is: handed over again, it would be ended twice.
bool IsUnlisted(const CProtocol& protocol, const CDeviceTag& tag) {
  const CDeviceTag* at = protocol.UnlistedTags;
  while (at != nullptr && at != &tag) at = reinterpret_cast<const CDeviceTag*>(at->SecondText);
  return at != nullptr;
}

bool IsInAList(const CProtocol& protocol, const CDeviceTag* tag) {
  const auto holds = [tag](const auto& owner) {
    return std::find(owner.Tags.begin(), owner.Tags.end(), tag) != owner.Tags.end();
  };
  return std::ranges::any_of(protocol.Channel.Devices, holds) || std::ranges::any_of(protocol.Retired, holds);
}

}  // namespace

std::int32_t STDMETHODCALLTYPE CProtocol::AddDevice(const DeviceEntry* config) {
  if (config == nullptr) return -1;
  return Guarded(std::int32_t{-1}, [&]() -> std::int32_t {
    const TableChange change(*this);
    DeviceEntry entry(*config);
    if (!IsWhole(entry, *config)) return -1;
    DropNulls(entry.Tags);
    DropNulls(entry.AuxList);
    if (!Channel.Devices.Append(std::move(entry))) return -1;
    return static_cast<std::int32_t>(Channel.Devices.Size() - 1);
  });
}

void STDMETHODCALLTYPE CProtocol::RemoveDevice(std::int32_t index) {
  const auto device = static_cast<std::uint32_t>(index);
  if (index < 0 || !IsListed(*this, device)) return;
  Guarded(0, [&] {
    const TableChange change(*this);
    if (DeviceEntry* const entry = Device(device)) {
      // Hosts never free a tag that they handed over, so those of a removed meter live as long as this object. Without
      // room for them the meter stays.
      Retire(Retired.emplace_back(), *entry);
      Channel.Devices.RemoveAt(device);
    }
    return 0;
  });
}

void STDMETHODCALLTYPE CProtocol::AddTag(std::uint32_t device, CDeviceTag* tag) {
  if (tag == nullptr) return;
  DeviceEntry* const entry = Device(device);
  if (entry == nullptr || IsUnlisted(*this, *tag) || entry->Tags.Append(tag) || IsInAList(*this, tag)) return;
  // It is this object's from here on all the same: its clients see it uncertain, and it is ended with the others.
  tag->Updated = 0;
  platform::FreeString(tag->SecondText);
  tag->SecondText = reinterpret_cast<BSTR>(UnlistedTags);
  UnlistedTags = tag;
}

}  // namespace ostrel
