// What the history operations of a channel keep between two calls.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "Protocol/model/MeterRef.h"
#include "Protocol/model/ProfileRecord.h"
#include "Protocol/model/TagCatalogue.h"
#include "platform/critical_section.h"

namespace ostrel {

/// Meter and tag of the last profile listing; no tag before the first.
struct ProfileCacheKey {
  MeterRef meter{};
  std::uint32_t tagId = 0;
};

struct HistoryState {
  const std::map<std::uint32_t, std::uint32_t> HistoryClassMap = MakeHistoryClassMap();
  /// Held for a whole walk over a load profile, its requests included, so that one walk's search does not move the meter's
  /// header address under another's records. Taken before ExchangeLock.
  platform::FairSection ProfileWalkLock;

  // Both guarded by ProfileDataLock.
  std::vector<ProfileRecord> ProfileCache;
  /// Whose records ProfileCache holds; a record itself does not say its meter.
  ProfileCacheKey ProfileCacheOwner;
};

}  // namespace ostrel
