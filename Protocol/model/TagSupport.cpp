// Which tags a meter type has. Both ends of a range belong to it; a meter type without a row has no tags.
#include <algorithm>
#include <span>

#include "Protocol/model/TagCatalogue.h"

namespace ostrel {
namespace {

struct IdRange {
  std::uint32_t first;
  std::uint32_t last;
};

/// Current-data ranges that begin with the branch have no lower end: an id before the branch counts as supported, and then
/// has no name.
constexpr std::uint32_t kBottom = 0;

constexpr IdRange kDaAll[] = {{kBottom, 20243}};
constexpr IdRange kDaType2[] = {
    {kBottom, 20005}, {20009, 20012}, {20017, 20017}, {20045, 20045}, {20049, 20051}, {20053, 20055},
    {20075, 20076},   {20087, 20087}, {20095, 20191}, {20210, 20222}, {20243, 20243},
};
constexpr IdRange kDaTypes3To7[] = {
    {kBottom, 20012}, {20017, 20021}, {20026, 20030}, {20035, 20039}, {20044, 20078},
    {20087, 20087},   {20095, 20100}, {20102, 20211}, {20243, 20243},
};
constexpr IdRange kDaType11[] = {
    {kBottom, 20012}, {20017, 20021}, {20026, 20030}, {20035, 20039}, {20044, 20078},
    {20087, 20087},   {20095, 20100}, {20102, 20213}, {20223, 20243},
};
constexpr IdRange kDaType12[] = {
    {kBottom, 20005}, {20009, 20012}, {20017, 20017}, {20027, 20030}, {20035, 20039}, {20044, 20045}, {20047, 20051},
    {20053, 20055},   {20075, 20076}, {20087, 20087}, {20095, 20191}, {20198, 20218}, {20243, 20243},
};

constexpr IdRange kHdaMainProfile[] = {{40000, 40111}};
constexpr IdRange kHdaTwoProfiles[] = {{40000, 40115}};
constexpr IdRange kHdaThreeProfiles[] = {{40000, 40119}};
/// A+ of the tariffs 1 to 4 and their sum, and P+ of the main profile.
constexpr IdRange kHdaType2[] = {
    {40000, 40003}, {40008, 40008}, {40036, 40039}, {40044, 40044}, {40072, 40075}, {40080, 40080}, {40108, 40108},
};
/// Tariffs 1 to 4 and their sum of every kind, in the archives and in the cumulative ones; all profiles between them.
constexpr IdRange kHdaTypes3To7[] = {
    {40000, 40003}, {40008, 40012}, {40017, 40021}, {40026, 40030}, {40035, 40039}, {40044, 40048}, {40053, 40057},
    {40062, 40066}, {40071, 40075}, {40080, 40084}, {40089, 40093}, {40098, 40102}, {40107, 40123}, {40128, 40132},
    {40137, 40141}, {40146, 40150}, {40155, 40159}, {40164, 40168}, {40173, 40177}, {40182, 40186}, {40191, 40195},
    {40200, 40204}, {40209, 40213}, {40218, 40222}, {40227, 40227},
};
/// The same without the third profile.
constexpr IdRange kHdaType11[] = {
    {40000, 40003}, {40008, 40012}, {40017, 40021}, {40026, 40030}, {40035, 40039}, {40044, 40048}, {40053, 40057},
    {40062, 40066}, {40071, 40075}, {40080, 40084}, {40089, 40093}, {40098, 40102}, {40107, 40115}, {40120, 40123},
    {40128, 40132}, {40137, 40141}, {40146, 40150}, {40155, 40159}, {40164, 40168}, {40173, 40177}, {40182, 40186},
    {40191, 40195}, {40200, 40204}, {40209, 40213}, {40218, 40222}, {40227, 40227},
};
/// A+, R+ and R- of the tariffs 1 to 4 and their sum, and P+, Q+ and Q- of the main profile.
constexpr IdRange kHdaType12[] = {
    {40000, 40003}, {40008, 40008}, {40018, 40021}, {40026, 40030}, {40035, 40039}, {40044, 40044}, {40054, 40057},
    {40062, 40066}, {40071, 40075}, {40080, 40080}, {40090, 40093}, {40098, 40102}, {40107, 40108}, {40110, 40111},
};

struct TypeSupport {
  std::uint32_t meterType;
  std::span<const IdRange> da;
  std::span<const IdRange> hda;
};
constexpr TypeSupport kSupport[] = {
    {.meterType = 0, .da = kDaAll, .hda = kHdaMainProfile},     {.meterType = 1, .da = kDaAll, .hda = kHdaTwoProfiles},
    {.meterType = 8, .da = kDaAll, .hda = kHdaThreeProfiles},   {.meterType = 2, .da = kDaType2, .hda = kHdaType2},
    {.meterType = 3, .da = kDaTypes3To7, .hda = kHdaTypes3To7}, {.meterType = 6, .da = kDaTypes3To7, .hda = kHdaTypes3To7},
    {.meterType = 7, .da = kDaTypes3To7, .hda = kHdaTypes3To7}, {.meterType = 11, .da = kDaType11, .hda = kHdaType11},
    {.meterType = 12, .da = kDaType12, .hda = kHdaType12},
};

constexpr bool Ascending(std::span<const IdRange> ranges, std::uint32_t bottom, std::uint32_t top) {
  std::uint32_t next = bottom;
  for (const IdRange& range : ranges) {
    if (range.first < next || range.last < range.first) return false;
    next = range.last + 2;  // neighbours would be one range
  }
  return ranges.back().last <= top;
}

static_assert(std::ranges::all_of(kSupport, [](const TypeSupport& type) {
  return Ascending(type.da, kBottom, kLastDaId) && Ascending(type.hda, kFirstHdaId, kLastHdaId);
}));

bool Holds(std::span<const IdRange> ranges, std::uint32_t id) {
  return std::ranges::any_of(ranges, [id](const IdRange& range) { return id >= range.first && id <= range.last; });
}

const TypeSupport* FindType(std::uint32_t meterType) {
  const auto* const found = std::ranges::find(kSupport, meterType, &TypeSupport::meterType);
  return found == std::end(kSupport) ? nullptr : found;
}

}  // namespace

bool SupportsDaTag(std::uint32_t meterType, std::uint32_t id) {
  const TypeSupport* const type = FindType(meterType);
  return type != nullptr && Holds(type->da, id);
}

bool SupportsHdaTag(std::uint32_t meterType, std::uint32_t id) {
  const TypeSupport* const type = FindType(meterType);
  return type != nullptr && Holds(type->hda, id);
}

}  // namespace ostrel
