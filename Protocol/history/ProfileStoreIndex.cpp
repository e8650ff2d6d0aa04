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
    if (store[position].TagId == tagId) byTime_.emplace(Ticks(store[position].Time), position);
  }
}

std::optional<std::uint32_t> ProfileStoreIndex::FindTime(const FILETIME& time) const {
  std::optional<std::uint32_t> first;
  for (auto [at, end] = byTime_.equal_range(Ticks(time)); at != end; ++at) {
    first = std::min(first.value_or(at->second), at->second);
  }
  return first;
}

std::optional<std::uint32_t> ProfileStoreIndex::FindAddress(const HostVector<ProfileRecord>& store, std::uint16_t address,
                                                            std::uint32_t tagId) {
  if (!addressesKnown_) LearnAddresses(store);
  const auto found = byAddress_.find(AddressKey(address, tagId));
  if (found == byAddress_.end()) return std::nullopt;
  return found->second;
}

void ProfileStoreIndex::LearnAddresses(const HostVector<ProfileRecord>& store) {
  byAddress_.reserve(known_);
  for (std::uint32_t position = 0; position < known_; ++position) {
    byAddress_.emplace(AddressKey(store[position].Address, store[position].TagId), position);
  }
  addressesKnown_ = true;
}

void ProfileStoreIndex::MoveTime(std::uint32_t position, std::uint32_t tagId, const FILETIME& from, const FILETIME& to) {
  if (tagId != tagId_ || Ticks(from) == Ticks(to)) return;
  for (auto [at, end] = byTime_.equal_range(Ticks(from)); at != end; ++at) {
    if (at->second != position) continue;
    auto node = byTime_.extract(at);
    node.key() = Ticks(to);
    byTime_.insert(std::move(node));
    return;
  }
}

}  // namespace ostrel
