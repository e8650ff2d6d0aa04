#include "Protocol/history/ProfileStoreIndex.h"

#include <algorithm>

#include "Protocol/history/HistoryTime.h"
#include "Protocol/history/ProfileRows.h"

namespace ostrel {
namespace {

std::uint64_t AddressKey(std::uint16_t address, std::uint32_t tagId) { return static_cast<std::uint64_t>(tagId) << 16 | address; }

}  // namespace

ProfileStoreIndex::ProfileStoreIndex(const HostVector<ProfileRecord>& store, std::uint32_t tagId)
    : known_(store.Size()), tagId_(tagId) {
  byTime_.reserve(known_ / kPowers);
  for (std::uint32_t position = 0; position < known_; ++position) {
    if (store[position].TagId == tagId) byTime_.push_back({.key = Ticks(store[position].Time), .position = position});
  }
  std::ranges::sort(byTime_);
}

std::optional<std::uint32_t> ProfileStoreIndex::FindFirst(const Places& places, std::uint64_t key) {
  const auto found = std::ranges::lower_bound(places, key, {}, &Place::key);
  if (found == places.end() || found->key != key) return std::nullopt;
  return found->position;
}

std::optional<std::uint32_t> ProfileStoreIndex::FindTime(const FILETIME& time) const { return FindFirst(byTime_, Ticks(time)); }

std::optional<std::uint32_t> ProfileStoreIndex::FindAddress(const HostVector<ProfileRecord>& store, std::uint16_t address,
                                                            std::uint32_t tagId) {
  if (!addressesKnown_) LearnAddresses(store);
  return FindFirst(byAddress_, AddressKey(address, tagId));
}

void ProfileStoreIndex::LearnAddresses(const HostVector<ProfileRecord>& store) {
  byAddress_.reserve(known_);
  for (std::uint32_t position = 0; position < known_; ++position) {
    byAddress_.push_back({.key = AddressKey(store[position].Address, store[position].TagId), .position = position});
  }
  std::ranges::sort(byAddress_);
  addressesKnown_ = true;
}

}  // namespace ostrel
