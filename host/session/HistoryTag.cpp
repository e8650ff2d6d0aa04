#include "host/session/HistoryTag.h"

#include <iterator>

#include "Protocol/model/TagCatalogue.h"

namespace ostrel::host {
namespace {

constexpr std::uint32_t kFirstProfile = 40108;
constexpr std::uint32_t kFirstCumulative = 40120;
constexpr std::uint32_t kTagsOfClass = 36;
constexpr std::uint32_t kTagsOfEnergy = 9;
constexpr std::uint32_t kMostTariffs = 8;

HistoryKind KindOfClass(std::uint32_t place) {
  constexpr HistoryKind kKinds[] = {HistoryKind::Day, HistoryKind::Month, HistoryKind::Year};
  return kKinds[place % std::size(kKinds)];
}

HistoryTag DescribeEnergy(const TagDefinition& definition, std::uint32_t first) {
  const std::uint32_t place = definition.id - first;
  const std::uint32_t tariff = place % kTagsOfEnergy;
  return {.definition = definition,
          .kind = KindOfClass(place / kTagsOfClass),
          .tariff = static_cast<std::uint8_t>(tariff == kMostTariffs ? 0 : tariff + 1),
          .unit = place % kTagsOfClass / kTagsOfEnergy < 2 ? "kWh" : "kvarh",
          .periodMinutes = 0};
}

}  // namespace

HistoryTag DescribeHistoryTag(const TagDefinition& definition, std::optional<std::uint32_t> tariff) {
  if (definition.id >= kFirstProfile && definition.id < kFirstCumulative) {
    return {.definition = definition,
            .kind = HistoryKind::Profile,
            .tariff = 0,
            .unit = (definition.id - kFirstProfile) % 4 < 2 ? "kW" : "kvar",
            .periodMinutes = 0};
  }
  HistoryTag tag = DescribeEnergy(definition, definition.id < kFirstProfile ? kFirstHdaId : kFirstCumulative);
  if (tariff) tag.tariff = static_cast<std::uint8_t>(*tariff);
  return tag;
}

}  // namespace ostrel::host
