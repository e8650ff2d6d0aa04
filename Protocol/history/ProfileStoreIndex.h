// Finds records in a meter's profile store by key. It is made for one walk and knows the records that were in the store
// before it; walks of one object follow each other, so nothing else changes the store meanwhile. Making it costs one pass
// over the store and saves one for every record of the walk.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <vector>

#include "Protocol/model/HostVector.h"
#include "Protocol/model/ProfileRecord.h"

namespace ostrel {

/// Of several records with one key the first in store order is found. Members may throw std::bad_alloc.
class ProfileStoreIndex {
 public:
  /// Look-ups by time are for one tag.
  ProfileStoreIndex(const HostVector<ProfileRecord>& store, std::uint32_t tagId);

  [[nodiscard]] std::optional<std::uint32_t> FindTime(const FILETIME& time) const;
  /// The store is the one that the index was made of; the addresses in it are gone through at the first call only, since
  /// a listing that is served from the store asks for none.
  [[nodiscard]] std::optional<std::uint32_t> FindAddress(const HostVector<ProfileRecord>& store, std::uint16_t address,
                                                         std::uint32_t tagId);

 private:
  struct Place {
    std::uint64_t key;
    std::uint32_t position;
    auto operator<=>(const Place&) const = default;
  };
  using Places = std::vector<Place>;  // ascending

  static std::optional<std::uint32_t> FindFirst(const Places& places, std::uint64_t key);
  void LearnAddresses(const HostVector<ProfileRecord>& store);

  std::uint32_t known_;
  std::uint32_t tagId_;
  Places byTime_;
  Places byAddress_;
  bool addressesKnown_ = false;
};

}  // namespace ostrel
